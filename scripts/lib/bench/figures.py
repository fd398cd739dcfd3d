"""One line of the table: a figure, how far its turns lie apart, the goal, and whether it is met."""
import statistics


class Unusable(Exception):
    """What was measured, or where it is to be written, is not as it has to be."""


class Goal:
    """A bound that a figure must not pass, or the value that it must have."""

    def __init__(self, value, exactly=False):
        self.value, self.exactly = value, exactly

    def is_missed(self, figure, spread):
        return figure != self.value if self.exactly else figure - spread > self.value


class Line:
    """Without a goal a figure is only told."""

    def __init__(self, section, name, figure, spread=0.0, goal=None, unit=""):
        self.section, self.name, self.figure, self.spread = section, name, figure, spread
        self.goal = goal if goal is None or isinstance(goal, Goal) else Goal(goal)
        self.unit = unit

    def missed(self):
        return self.goal is not None and self.goal.is_missed(self.figure, self.spread)

    def shown(self):
        if not self.spread:
            return number(self.figure, 3) + self.unit
        places = min(places_of(self.figure, 3), places_of(self.spread, 2))
        return f"{rounded(self.figure, places)} ±{rounded(self.spread, places)}{self.unit}"

    def shown_goal(self):
        if self.goal is None:
            return ""
        return ("" if self.goal.exactly else "≤ ") + number(self.goal.value, 3) + self.unit


def places_of(value, digits):
    """How many decimal places show so many digits; below zero for those in front of the point."""
    return digits - 1 - int(f"{value:e}".partition("e")[2])


def rounded(value, places):
    return f"{round(value, places):,.{max(0, places)}f}"


def number(value, digits):
    """With so many digits, without zeros behind the point, and never with an exponent."""
    text = rounded(value, places_of(value, digits)) if value else "0"
    return text.rstrip("0").rstrip(".") if "." in text else text


def median_line(section, name, values, goal=None, unit=""):
    """Behind the median stands half the distance between the quartiles."""
    quartiles = statistics.quantiles(values, n=4)
    return Line(section, name, statistics.median(values), (quartiles[2] - quartiles[0]) / 2, goal, unit)


def ratio_line(section, name, above, below, goal=None):
    if len(above) != len(below):
        raise Unusable(f"{name}: {len(above)} turns beside {len(below)}")
    return median_line(section, name, [a / b for a, b in zip(above, below)], goal)
