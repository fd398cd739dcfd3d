"""Makes the table's lines out of what was measured with one compiler: what is compared, and the goals."""
from figures import Goal, Line, median_line, ratio_line

RECEIVE, DELIVERY, SEND, LOOP, SIZE = "receive", "delivery", "send", "run loop", "size"
PAYLOADS = [4, 16, 64, 256, 1021]
PIECES = {0: "one piece", 20: "pieces of 20", 244: "pieces of 244"}
# A frame is a copy; a raw value is handed on as it is.
ALLOCATIONS_OF_A_VALUE = {"standard": 1, "raw": 0}


def receive_lines(build):
    times, counts = build["times"], build["counts"]
    for payload in PAYLOADS:
        small = payload < 64
        base = f"receive/{payload}/"
        whole = times[base + "0"]
        yield ratio_line(RECEIVE, f"payload {payload}: one piece / floor", whole, times[base + "floor"],
                         1.15 if small else 1.05)
        for piece in (20, 244):
            yield ratio_line(RECEIVE, f"payload {payload}: pieces of {piece} / one piece",
                             times[base + str(piece)], whole, 1.4 if small else 1.2)
        yield ratio_line(RECEIVE, f"payload {payload}: byte by byte / one piece", times[base + "literal"],
                         whole)
    added = [a - b for a, b in zip(times["waiting/megabyte"], times["waiting/nothing"])]
    yield ratio_line(RECEIVE, "a megabyte waits: added per arrival / one scan of it, byte by byte", added,
                     times["waiting/literal"], 0.02)
    yield ratio_line(RECEIVE, "a megabyte waits: added per arrival / a bare loop over it", added,
                     times["waiting/plain-scan"])
    for which in ("fewest", "most"):
        yield Line(RECEIVE, f"allocations per delivered frame, the {which}",
                   counts["allocations/frame/" + which], goal=Goal(1, exactly=True))
    for payload in PAYLOADS:
        for piece, words in PIECES.items():
            yield Line(RECEIVE, f"payload {payload}, {words}: allocations per arrival besides, the most",
                       counts[f"allocations/arrival/{payload}/{piece}"], goal=1)


def delivery_lines(build):
    times, counts = build["times"], build["counts"]
    yield ratio_line(DELIVERY, "value event, standard family / its bytes read alone",
                     times["deliver/standard"], times["deliver/unrouted"])
    yield ratio_line(DELIVERY, "value event, raw family / a callback alone", times["deliver/raw"],
                     times["deliver/floor"])
    for family in ("standard", "raw"):
        yield ratio_line(DELIVERY, f"whole manager on the simulated radio, {family} / value events alone",
                         times["whole-way/" + family], times["deliver/" + family])
        yield median_line(DELIVERY, f"whole manager on the simulated radio, {family}: frames",
                          build["rates"]["whole-way/" + family], unit=" per second")
        yield Line(DELIVERY, f"whole manager on the simulated radio, {family}: allocations per frame",
                   counts["allocations/whole-way/" + family])
        yield Line(DELIVERY, f"value event, {family}: allocations per frame",
                   counts["allocations/deliver/" + family],
                   goal=Goal(ALLOCATIONS_OF_A_VALUE[family], exactly=True))
    yield ratio_line(DELIVERY, "a log line that nobody hears / one that is thrown away",
                     times["log/unheard"], times["log/heard"], 0.02)
    yield ratio_line(DELIVERY, "a log line that nobody hears / the question alone", times["log/unheard"],
                     times["log/floor"])
    yield Line(DELIVERY, "a log line that nobody hears: allocations", counts["allocations/log-unheard"],
               goal=Goal(0, exactly=True))


def send_lines(build):
    times = build["times"]
    yield ratio_line(SEND, "a send / its writes and pauses alone", times["send/manager"], times["send/floor"])
    yield median_line(SEND, "a pause in real time: too long by",
                      [ns / 1e6 for ns in times["send/pause-overshoot"]], 1.0, " ms")


def loop_lines(build):
    times = build["times"]
    for what, words in (("arm-and-cancel", "arm and cancel"), ("rearm", "arm again"),
                        ("arm-and-fire", "arm and fire")):
        for pending in (100, 10000):
            yield ratio_line(LOOP, f"{words}, {pending:,} pending / 1 pending",
                             times[f"loop/{what}/{pending}"], times[f"loop/{what}/1"])
    for what, words in (("fire-all", "each with a target of its own"), ("fire-all-on-one", "all alike")):
        for pending in (100, 10000):
            each = [ns / pending for ns in times[f"loop/{what}/{pending}"]]
            yield ratio_line(LOOP, f"fire {pending:,} in one turn, {words}: each / one alone", each,
                             times[f"loop/{what}/1"])
    yield ratio_line(LOOP, "post from another thread until it ran / a flag set and seen",
                     times["loop/post-latency"], times["loop/post-latency-floor"])
    yield ratio_line(LOOP, "10,000 posts on end / a list under a lock", times["loop/post-throughput"],
                     times["loop/post-throughput-floor"])
    yield median_line(LOOP, "posts on end that run", build["rates"]["loop/post-throughput"],
                      unit=" per second")


def size_lines(build):
    for library, bytes_ in build["sizes"].items():
        yield Line(SIZE, f"lib{library}.so, stripped", bytes_ / 1000, unit=" kB")
    with_, without = zip(*build["start_ups"])
    yield ratio_line(SIZE, "start to end of a program that makes a manager / one without the library",
                     with_, without)
    yield median_line(SIZE, "start to end of a program that makes a manager: longer by",
                      [(a - b) / 1e6 for a, b in zip(with_, without)], unit=" ms")
    memory = build["memory"]
    yield Line(SIZE, "the manager object itself", memory["memory/object/manager"] / 1000, unit=" kB")
    for kind, words in (("live", "allocated"), ("own", "pages of its own"), ("resident", "resident")):
        for count, name in (("none", "no manager"), ("one", "one manager"), ("eight", "eight managers"),
                            ("each-further", "each further manager")):
            key = f"memory/{kind}/{count}"
            if key in memory:
                yield Line(SIZE, f"{name}: {words}", memory[key] / 1000, unit=" kB")


def lines_of(build):
    return [*receive_lines(build), *delivery_lines(build), *send_lines(build), *loop_lines(build),
            *size_lines(build)]
