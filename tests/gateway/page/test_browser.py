"""The page in Chromium: what it shows, how it looks, and what it does not let in."""

from __future__ import annotations

import os
from pathlib import Path

from browser import Browser
from machines import ConsumerProcess, Room, wait_for
from pages import Page, script_of, started_broker, with_a_page

TAB, ENTER = ("Tab", 9), ("Enter", 13)
LIVE, UP = "#live", "#broker-up"

# What a reader's name may have, and how the page shows it. A name without this part is not a
# reader's.
PREFIX = "KVR-"
NAMES = {
    b"<img src=x onerror='window.hurt=1'>": "<img src=x onerror='window.hurt=1'>",
    b"<script>window.hurt=2</script>": "<script>window.hurt=2</script>",
    b"\x1b[31mred\x1b]0;title\x07": "\\u{1b}[31mred\\u{1b}]0;title\\u{7}",
    b"tab\there\x7f": "tab\\u{9}here\\u{7f}",
    b"bad\xff\xfeutf8": "bad\ufffd\ufffdutf8",
    "turned \u202e around".encode(): "turned \\u{202e} around",
    "&amp; \u00fcml\u00e4ut \u4f60\u597d".encode(): "&amp; \u00fcml\u00e4ut \u4f60\u597d",
    b"\"><svg onload=window.hurt=3>": "\"><svg onload=window.hurt=3>",
}


def opened(browser: Browser, page: Page) -> None:
    page.wait()
    browser.open(page.url)
    browser.wait_for_text(LIVE, "Live")


def test_a_reader_that_comes_appears_with_its_phase_and_its_frames(room: Room, browser: Browser) -> None:
    gateway, page = with_a_page(room, started_broker(room))
    gateway.settings.readers = ["KVR-0001"]
    gateway.start()
    opened(browser, page)
    browser.wait_for_text("#reader-rows tr", "KVR-0001")
    assert not any("KVR-0002" in text for text in browser.texts("#reader-rows tr"))
    gateway.settings.readers = ["KVR-0001", "KVR-0002"]
    gateway.reload()
    row = browser.wait_for_text("#reader-rows tr", "KVR-0002")
    wait_for(
        "the second reader to be plugged in",
        lambda: any("KVR-0002" in row and "plugged in" in row for row in browser.texts("#reader-rows tr")),
    )
    browser.wait_for_text("#frame-rows tr", "KVR-0002")
    assert "C0:00:00:00:00:02" in row or browser.wait_for_text("#reader-rows tr", "C0:00:00:00:00:02")
    assert browser.complaints() == []


def test_frames_arrive_live_and_can_be_held_still(room: Room, browser: Browser) -> None:
    gateway, page = with_a_page(room, started_broker(room), pause=0.05)
    gateway.start()
    opened(browser, page)
    newest = "#frame-rows tr:first-child th"

    def number() -> int:
        return int(browser.text(newest) or 0)

    first = wait_for("a frame", number)
    wait_for("a full table of frames, and more", lambda: number() > max(first + 20, 30))
    log = gateway.exported()
    known = {str(each["n"]): each["bytes"] for each in log if "bytes" in each}
    shown = browser.value(
        "[...document.querySelectorAll('#frame-rows tr')].map((row) => [row.cells[0].innerText, row.cells[3].innerText])"
    )
    compared = [(number, digits) for number, digits in shown if number in known]
    assert all(known[number] == digits for number, digits in compared)
    assert len(shown) == 30 and (compared or not known)
    browser.value("document.querySelector('#pause').click()")
    still = number()
    counted = browser.text("#reader-rows tr:first-child td:nth-child(5)")
    wait_for("the rest of the page to go on", lambda: browser.text("#reader-rows tr:first-child td:nth-child(5)") != counted)
    assert number() == still
    browser.value("document.querySelector('#pause').click()")
    wait_for("frames to go on", lambda: number() > still)


def test_the_brokers_loss_and_its_return_are_seen(room: Room, browser: Browser) -> None:
    broker = started_broker(room)
    gateway, page = with_a_page(room, broker)
    gateway.start()
    opened(browser, page)
    browser.wait_for_text(UP, "connected")
    wait_for("no trouble", lambda: browser.text("#no-trouble") == "Nothing is wrong.")
    broker.kill()
    browser.wait_for_text(UP, "no connection")
    browser.wait_for_text("#trouble li", "no broker")
    broker.start()
    browser.wait_for_text(UP, "connected")
    wait_for("the trouble to go", lambda: not browser.texts("#trouble li"))
    assert browser.text("#no-trouble") == "Nothing is wrong."


def test_a_consumer_that_commits_is_seen_to_come_on(room: Room, browser: Browser) -> None:
    broker = started_broker(room)
    gateway, page = with_a_page(room, broker)
    consumer = ConsumerProcess(room, broker.port)
    gateway.start()
    opened(browser, page)
    browser.wait_for_text("#consumer-rows tr", "store")

    def committed() -> int:
        return int(browser.text("#consumer-rows td").replace(",", "") or 0)

    before = committed()
    consumer.start()
    wait_for("the commit to move", lambda: committed() > before + 5)


def test_the_page_says_that_it_has_lost_its_gateway_and_comes_back_by_itself(room: Room, browser: Browser) -> None:
    gateway, page = with_a_page(room, started_broker(room))
    gateway.start()
    opened(browser, page)
    gateway.kill()
    browser.wait_for_text(LIVE, "is lost")
    assert "bad" in browser.value("document.querySelector('#live').className")
    mark = gateway.mark()
    gateway.start()
    page.wait(mark)
    browser.wait_for_text(LIVE, "Live")
    assert browser.complaints() == []


def test_names_from_the_air_are_text_and_nothing_else(room: Room, browser: Browser) -> None:
    gateway, page = with_a_page(room, started_broker(room))
    script_of(room, gateway, [(0.2, PREFIX.encode() + name) for name in NAMES])
    shown = {PREFIX + name for name in NAMES.values()}
    gateway.start()
    opened(browser, page)
    wait_for("all frames", lambda: shown <= set(browser.texts("#frame-rows bdi")))
    assert set(browser.texts("#reader-rows bdi")) == shown
    assert browser.value("window.hurt ?? 'unhurt'") == "unhurt"
    assert browser.value("document.querySelectorAll('main img, main script').length") == 0
    assert browser.complaints() == []
    assert all(url.startswith(page.url) for url in browser.requested()), browser.requested()


def test_nothing_may_become_part_of_the_page(room: Room, browser: Browser) -> None:
    """The policy that comes with the page holds in the browser, should the page's own care ever fail."""
    gateway, page = with_a_page(room, started_broker(room))
    gateway.start()
    opened(browser, page)
    refused = browser.value("(() => { try { document.body.innerHTML = '<b>x</b>'; return 'taken'; } catch { return 'refused'; } })()")
    assert refused == "refused"
    for attempt in (
        "const s = document.createElement('script'); s.src = 'data:text/javascript,window.hurt=1'; document.body.append(s)",
        "document.body.setAttribute('onclick', 'window.hurt=2'); document.body.click()",
    ):
        assert browser.value(f"(() => {{ try {{ {attempt} }} catch {{ return 'refused'; }} }})()") == "refused", attempt
    assert browser.value("window.hurt ?? 'unhurt'") == "unhurt"
    # What is loaded from elsewhere is refused later.
    browser.value("(() => { document.body.append(Object.assign(new Image(), {src: 'http://127.0.0.1:9/x'})); })()")

    def is_refused() -> bool:
        browser.value("0")
        return any("127.0.0.1:9/x" in each for each in browser.complaints())

    wait_for("the browser to refuse what is elsewhere", is_refused)
    assert browser.value("window.hurt ?? 'unhurt'") == "unhurt"


def test_another_sites_page_cannot_read_it(room: Room, browser: Browser) -> None:
    broker = started_broker(room)
    one, page = with_a_page(room, broker)
    one.start()
    page.wait()
    browser.open("data:text/html,<title>elsewhere</title>")
    read = browser.value(f"fetch('{page.url}status.json').then((it) => it.text(), () => 'refused')")
    assert read == "refused"
    loaded = browser.value(
        "new Promise((done) => { const s = document.createElement('script');"
        f" s.src = '{page.url}status.json'; s.onload = () => done('loaded'); s.onerror = () => done('refused');"
        " document.head.append(s); })"
    )
    assert loaded == "refused"


def focused(browser: Browser) -> str:
    return str(browser.value("document.activeElement.id || document.activeElement.innerText || document.activeElement.tagName"))


def test_the_keyboard_reaches_everything_in_its_order_and_shows_where_it_is(room: Room, browser: Browser) -> None:
    gateway, page = with_a_page(room, started_broker(room))
    gateway.start()
    opened(browser, page)
    order = []
    for _ in range(4):
        browser.press(*TAB)
        order.append(focused(browser))
        outline = browser.value("getComputedStyle(document.activeElement).outlineStyle + getComputedStyle(document.activeElement).outlineWidth")
        assert outline == "solid3px", order
    assert order == ["To the readers", "pause", "status.json", "metrics"]
    browser.value("document.querySelector('#pause').focus()")
    browser.press(*ENTER)
    assert browser.value("document.querySelector('#pause').getAttribute('aria-pressed')") == "true"
    browser.value("document.querySelector('.skip').focus()")
    browser.press(*ENTER)
    wait_for("the readers to have the focus", lambda: focused(browser) == "readers")


def test_a_screen_reader_finds_names_landmarks_and_tables(room: Room, browser: Browser) -> None:
    gateway, page = with_a_page(room, started_broker(room))
    gateway.settings.readers = ["KVR-0001"]
    gateway.start()
    for width in (1100, 360):
        browser.look_like(width=width)
        opened(browser, page)
        browser.wait_for_text("#frame-rows tr", "KVR-0001")
        found = browser.accessible()
        for wanted in [
            ("RootWebArea", "Gateway gw"), ("banner", ""), ("main", ""), ("contentinfo", ""),
            ("heading", "Gateway gw"), ("status", ""), ("log", "Trouble"), ("region", "Readers"), ("table", "Readers"),
            ("columnheader", "Phase"), ("button", "Hold still"), ("meter", "Fill"), ("region", "Last frames"),
            ("link", "status.json"),
        ]:
            assert wanted in found, (width, wanted, found)
        assert any(role == "rowheader" and name.startswith("KVR-0001") for role, name in found), (width, found)
        graphs = [name for role, name in found if role in ("image", "img") and name]
        assert graphs and all(name.startswith("Frames per minute over the last hour: ") for name in graphs), found
    missing = [role for role, name in found if role in ("link", "button", "img", "image", "meter", "table") and not name]
    assert missing == []


def brightness(color: str) -> float:
    parts = [float(each) / 255 for each in color[color.index("(") + 1 : -1].split(",")[:3]]
    linear = [each / 12.92 if each <= 0.04045 else float(((each + 0.055) / 1.055) ** 2.4) for each in parts]
    return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2]


CONTRASTS = """[...document.querySelectorAll('body *')]
  .filter((each) => each.childNodes.length && [...each.childNodes].some((n) => n.nodeType === 3 && n.data.trim()))
  .filter((each) => each.getClientRects().length && each.tagName !== 'NOSCRIPT')
  .map((each) => {
    let ground = each;
    while (ground && getComputedStyle(ground).backgroundColor === 'rgba(0, 0, 0, 0)') ground = ground.parentElement;
    return [each.tagName + '#' + each.id, getComputedStyle(each).color, getComputedStyle(ground ?? document.body).backgroundColor];
  })"""


def test_text_stands_out_in_light_and_in_dark(room: Room, browser: Browser) -> None:
    gateway, page = with_a_page(room, started_broker(room))
    gateway.start()
    grounds = []
    for dark in (False, True):
        browser.look_like(dark=dark)
        opened(browser, page)
        browser.wait_for_text("#frame-rows tr", "KVR")
        texts = browser.value(CONTRASTS)
        assert len(texts) > 60
        for name, ink, ground in texts:
            high, low = sorted((brightness(ink), brightness(ground)), reverse=True)
            assert (high + 0.05) / (low + 0.05) >= 4.5, (dark, name, ink, ground)
        grounds.append(brightness(browser.value("getComputedStyle(document.body).backgroundColor")))
    assert grounds[0] > 0.9 and grounds[1] < 0.05


def test_on_a_telephone_nothing_is_cut_off(room: Room, browser: Browser) -> None:
    gateway, page = with_a_page(room, started_broker(room))
    script_of(room, gateway, [(0.2, b"KVR-" + b"W" * 60), (0.2, b"KVR-0002")])
    gateway.start()
    browser.look_like(width=360, height=740)
    opened(browser, page)
    browser.wait_for_text("#frame-rows tr", "W" * 60)
    assert browser.value("document.documentElement.scrollWidth") <= 360


def test_pictures_of_the_page_are_taken(room: Room, browser: Browser) -> None:
    """With KESTRIN_PICTURES they go there, for docs/images."""
    broker = started_broker(room)
    gateway, page = with_a_page(room, broker, pause=0.5)
    script_of(room, gateway, [(0.5, b"KVR-0417"), (0.8, b"KVR-0418"), (1.0, b"KVR-Q62T 0004")])
    gateway.settings.name = "hall-1"
    gateway.settings.readers.append("KVR-0777")
    gateway.start()
    consumer = ConsumerProcess(room, broker.port, gateway="hall-1")
    consumer.start()
    looks = {"light": (False, 1100), "dark": (True, 1100), "narrow": (False, 390)}
    pictures = {}
    for name, (dark, width) in looks.items():
        browser.look_like(dark=dark, width=width, height=1000)
        opened(browser, page)
        wait_for("the consumer and frames", lambda: len(browser.texts("#frame-rows tr")) >= 12)
        pictures[name] = browser.screenshot()
    folder = os.environ.get("KESTRIN_PICTURES")
    for name, picture in pictures.items():
        assert picture.startswith(b"\x89PNG") and 10_000 < len(picture) < 300_000
        if folder:
            (Path(folder) / f"gateway-page-{name}.png").write_bytes(picture)
    assert len(set(pictures.values())) == 3
