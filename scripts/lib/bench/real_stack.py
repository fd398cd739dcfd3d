"""Makes the table's lines out of what scripts/realstack-bench measured: one row for each client and phase
of each turn of each boot."""
from figures import Goal, Line, Unusable, median_line, ratio_line

SECTION = "real stack"
LIBRARY, FLOOR = "library", "descriptor"
OTHERS = {"signals": "bare loop on signals", "bleak": "Python client", "qt": "Qt client"}
CLIENTS = {LIBRARY: "library", FLOOR: "bare loop", **OTHERS}


def key_of(row):
    return (row["boot"], row["turn"], row["phase"])


class Rows:
    def __init__(self, rows):
        self.rows = rows
        self.phases = list(dict.fromkeys(row["phase"] for row in rows))

    def of(self, client, phase):
        """By boot and turn. A client that was not measured has none."""
        return {key_of(row): row for row in self.rows if row["client"] == client and row["phase"] == phase}

    def ratio(self, name, client, phase, figure, goal=None):
        """In the same turn of the same boot, client to bare loop."""
        above, below = self.of(client, phase), self.of(FLOOR, phase)
        if not above or above.keys() != below.keys():
            raise Unusable(f"real stack, {phase}: {client} and {FLOOR} were not measured in the same turns")
        return ratio_line(SECTION, name, [figure(above[key]) for key in sorted(above)],
                          [figure(below[key]) for key in sorted(above)], goal)

    def values(self, client, phase, name):
        return [row[name] for row in self.of(client, phase).values()]


def client_time(row):
    return row["client_ms"]


def total_time(row):
    return row["client_ms"] + row["bus_ms"] + row["bluetoothd_ms"]


def phase_lines(rows, phase):
    yield rows.ratio(f"{phase}: library / bare loop, the client alone", LIBRARY, phase, client_time, 1.5)
    yield rows.ratio(f"{phase}: library / bare loop, client, bus and daemon", LIBRARY, phase, total_time, 1.1)
    for client, words in OTHERS.items():
        if rows.of(client, phase):
            yield rows.ratio(f"{phase}: {words} / bare loop, the client alone", client, phase, client_time)
            yield rows.ratio(f"{phase}: {words} / bare loop, client, bus and daemon", client, phase,
                             total_time)
    if phase.endswith("/s"):  # Flat out there is no rate to keep up with: what is lost then is only told.
        lost = sum(row["lost"] for row in rows.of(LIBRARY, phase).values())
        yield Line(SECTION, f"{phase}: library, values lost in all turns", lost, goal=Goal(0, exactly=True))


def how_often(rows):
    boots = {row["boot"] for row in rows}
    runs = {(row["boot"], row["turn"]) for row in rows}
    return f"{len(boots)} starts of the machine, {len(runs)} turns of each client in all"


def spent(rows):
    """Cells: what each client's runs took of the processor, and what was lost in all of them."""
    rows = Rows(rows)
    cells = [["phase", "client", "client, ms", "bus, ms", "daemon, ms", "values lost"]]
    for phase in rows.phases:
        for client, words in CLIENTS.items():
            found = rows.of(client, phase).values()
            if found:
                times = [median_line(SECTION, "", [row[name] for row in found]).shown()
                         for name in ("client_ms", "bus_ms", "bluetoothd_ms")]
                lost, sent = (sum(row[name] for row in found) for name in ("lost", "values"))
                cells.append([phase, words, *times, f"{lost:,} of {sent + lost:,}"])
    return cells


def lines_of(rows):
    rows = Rows(rows)
    lines = [line for phase in rows.phases for line in phase_lines(rows, phase)]
    # What belongs to the link is the same in each phase; memory is looked at when all has come in.
    first, last = rows.phases[0], rows.phases[-1]
    for client, words in CLIENTS.items():
        for name, phase, told, unit in (("idle_ms_per_s", first, "idle, linked", " ms per second"),
                                        ("connect_ms", first, "from connect to services known", " ms"),
                                        ("rss_kb", last, "resident", " kB"),
                                        ("own_kb", last, "pages of its own", " kB")):
            values = rows.values(client, phase, name)
            if values:
                goal = 0.1 if client == LIBRARY and name == "idle_ms_per_s" else None
                lines.append(median_line(SECTION, f"{words}: {told}", values, goal, unit))
    return lines
