// The gateway's page: shows what comes with the event stream. Everything becomes text of an element,
// so that nothing from a reader's name or a frame is ever taken for anything else.
"use strict";

const byId = (id) => document.getElementById(id);

// What has no shape of its own, or turns the letters behind it around, is shown as its number.
const unseen = /[\u0000-\u001f\u007f-\u009f\u00ad\u061c\u200b-\u200f\u2028-\u202e\u2060-\u206f\ufeff\ufff9-\ufffb]/gu;
const visible = (text) =>
  String(text).replace(unseen, (c) => "\\u{" + c.codePointAt(0).toString(16) + "}");

function setText(element, text) {
  const shown = visible(text);
  if (element.textContent !== shown) element.textContent = shown;
}

function make(name, text, kind) {
  const element = document.createElement(name);
  if (text !== undefined) setText(element, text);
  if (kind) element.className = kind;
  return element;
}

const number = (value) => Number(value).toLocaleString("en");
const counted = (value, one, many) => number(value) + " " + (value === 1 ? one : many);

function size(bytes) {
  const units = ["B", "KiB", "MiB", "GiB", "TiB"];
  let unit = 0;
  while (bytes >= 1024 && unit + 1 < units.length) {
    bytes /= 1024;
    ++unit;
  }
  return (unit === 0 ? bytes : bytes.toFixed(1)) + " " + units[unit];
}

function span(seconds) {
  const [size, unit] = seconds < 60 ? [1, "s"] : seconds < 3600 ? [60, "min"]
    : seconds < 172800 ? [3600, "h"] : [86400, "days"];
  // Number and unit stay on one line.
  return Math.max(0, Math.floor(seconds / size)) + "\u00a0" + unit;
}

// By the gateway's own clock, which need not be this machine's.
const since = (then, now) => "for " + span((Date.parse(now) - Date.parse(then)) / 1000);

const phases = {
  radioOff: "the radio is off", searching: "searched for", connecting: "connecting",
  linkingUp: "linking up", pluggedIn: "plugged in", lost: "lost", away: "away", closed: "closed",
};

// --- Rows, of which those that stay are kept, so that a screen reader keeps its place.

function cell(row, index, name, isHead) {
  let found = row.cells[index];
  if (!found) {
    found = document.createElement(isHead ? "th" : "td");
    found.setAttribute("role", isHead ? "rowheader" : "cell");
    if (isHead) found.scope = "row";
    else found.dataset.name = name;
    row.append(found);
  }
  return found;
}

function showRows(body, items, fill) {
  items.forEach((item, index) => {
    let row = body.rows[index];
    if (!row) {
      row = document.createElement("tr");
      row.setAttribute("role", "row");
      body.append(row);
    }
    fill(row, item);
  });
  while (body.rows.length > items.length) body.rows[body.rows.length - 1].remove();
}

// --- A small graph, with its text beside it for who does not see it.

const svgName = "http://www.w3.org/2000/svg";

function graph(place, minutes) {
  const most = Math.max(1, ...minutes);
  const all = minutes.reduce((sum, each) => sum + each, 0);
  const now = minutes[minutes.length - 1] || 0;
  const text = "Frames per minute over the last hour: " + number(all) + " in all, at most " +
    number(Math.max(0, ...minutes)) + " in a minute, " + number(now) + " in this one";
  let svg = place.querySelector("svg");
  if (!svg) {
    svg = document.createElementNS(svgName, "svg");
    svg.setAttribute("class", "minutes");
    svg.setAttribute("role", "img");
    svg.setAttribute("preserveAspectRatio", "none");
    place.replaceChildren(svg, make("small"));
  }
  svg.setAttribute("viewBox", "0 0 " + minutes.length + " 20");
  svg.setAttribute("aria-label", text);
  const bars = minutes.map((each, index) => [index, (19 * each) / most]);
  const path = bars.map(([x, high]) => "M" + x + " 20v-" + high.toFixed(2) + "h.8v" + high.toFixed(2) + "z").join("");
  if (svg.dataset.path === path) return;
  svg.dataset.path = path;
  const ground = document.createElementNS(svgName, "rect");
  for (const [key, value] of [["class", "ground"], ["y", "19.5"], ["width", minutes.length], ["height", ".5"]]) {
    ground.setAttribute(key, value);
  }
  const drawn = document.createElementNS(svgName, "path");
  drawn.setAttribute("d", path);
  svg.replaceChildren(ground, drawn);
  setText(place.querySelector("small"), "at most " + number(Math.max(0, ...minutes)));
}

function readerRow(row, reader, now) {
  const head = cell(row, 0, "Reader", true);
  if (!head.firstChild) head.append(make("bdi"), make("small"));
  setText(head.firstChild, reader.name || reader.key);
  setText(head.lastChild, reader.reader);
  const phase = cell(row, 1, "Phase");
  if (!phase.firstChild) phase.append(make("span"), make("small"));
  setText(phase.firstChild, phases[reader.phase] || reader.phase);
  phase.firstChild.className = reader.phase === "pluggedIn" ? "mark good" : "mark bad";
  setText(phase.lastChild, reader.trouble || "");
  setText(cell(row, 2, "Since"), since(reader.since, now));
  setText(cell(row, 3, "Signal"), reader.signal === undefined ? "not known" : reader.signal + " dBm when found");
  setText(cell(row, 4, "Frames"), number(reader.frames));
  graph(cell(row, 5, "Per minute"), reader.minutes);
}

// --- What the gateway says.

let version;

function showStatus(status) {
  // Another version has another page.
  if (version && version !== status.version) location.reload();
  version = status.version;
  document.title = "Gateway " + visible(status.gateway);
  setText(byId("gateway"), status.gateway);
  setText(byId("about"), "Version " + status.version + ", radio " + status.radio +
    (status.adapter ? " " + status.adapter : "") + ", running " + since(status.started, status.at));
  const trouble = byId("trouble");
  status.trouble.forEach((line, index) => {
    if (!trouble.children[index]) trouble.append(make("li"));
    setText(trouble.children[index], line);
  });
  while (trouble.children.length > status.trouble.length) trouble.lastChild.remove();
  byId("no-trouble").hidden = status.trouble.length > 0;
  showRows(byId("reader-rows"), status.readers, (row, each) => readerRow(row, each, status.at));
  showBroker(status);
  showLog(status.log);
  showConsumers(status);
  showGaps(status);
  showFrames(status.frames, 0);
}

function showBroker(status) {
  const up = byId("broker-up");
  setText(up, status.broker.up ? "connected" : "no connection");
  up.className = status.broker.up ? "mark good" : "mark bad";
  setText(byId("broker-since"), since(status.broker.since, status.at));
  setText(byId("broker-address"), status.broker.address);
  setText(byId("broker-flight"), counted(status.broker.inFlight, "message", "messages"));
}

function showLog(log) {
  const part = log.budget > 0 ? log.bytes / log.budget : 0;
  byId("fill").value = part;
  setText(byId("fill-text"), size(log.bytes) + " of " + size(log.budget) + ", " + (100 * part).toFixed(1) + " %");
  setText(byId("log-last"), number(log.last));
  setText(byId("log-synced"), number(log.synced));
  setText(byId("log-published"), number(log.published));
  setText(byId("log-waiting"), counted(Math.max(0, log.last - log.forgotten), "record", "records"));
}

function showConsumers(status) {
  setText(byId("promise"), "The promise in force: " + status.promise);
  showRows(byId("consumer-rows"), Object.entries(status.commits), (row, [name, committed]) => {
    setText(cell(row, 0, "Consumer", true), name);
    setText(cell(row, 1, "Has everything up to"), number(committed));
    setText(cell(row, 2, "Behind"), number(Math.max(0, status.log.last - committed)));
  });
}

function showGaps(status) {
  setText(byId("gap-count"), status.gapCount === 0
    ? "No gap since the start."
    : counted(status.gapCount, "gap", "gaps") + " since the start.");
  byId("gaps").hidden = status.gaps.length === 0;
  showRows(byId("gap-rows"), [...status.gaps].reverse(), (row, gap) => {
    setText(cell(row, 0, "Numbers lost", true), number(gap.from) + " to " + number(gap.to));
    setText(cell(row, 1, "Reason"), gap.reason);
    setText(cell(row, 2, "Reported as"), "number " + number(gap.n));
  });
}

// --- Frames, newest on top.

const mostFrames = 30;
let shownFrames = [];
let isHeld = false;

function showFrames(frames, left) {
  // A log that begins again has numbers that there were before.
  const name = (frame) => frame.at + " " + frame.n;
  const known = new Set(shownFrames.map(name));
  const fresh = frames.filter((each) => !known.has(name(each)));
  shownFrames = [...fresh, ...shownFrames];
  shownFrames.sort((a, b) => (a.at === b.at ? b.n - a.n : a.at < b.at ? 1 : -1));
  shownFrames.length = Math.min(shownFrames.length, mostFrames);
  if (left > 0) setText(byId("left"), "They come faster than they are shown: " + number(left) + " were left out.");
  if (!isHeld) drawFrames();
}

function drawFrames() {
  showRows(byId("frame-rows"), shownFrames, (row, frame) => {
    setText(cell(row, 0, "Number", true), frame.n);
    const at = cell(row, 1, "At");
    setText(at, frame.at.slice(11, 23));
    at.title = visible(frame.at);
    const reader = cell(row, 2, "Reader");
    if (!reader.firstChild) reader.append(make("bdi"));
    setText(reader.firstChild, frame.name || frame.reader);
    const bytes = cell(row, 3, "Bytes");
    bytes.className = "bytes";
    setText(bytes, frame.bytes.length > 128 ? frame.bytes.slice(0, 128) + "…" : frame.bytes);
  });
}

byId("pause").addEventListener("click", () => {
  isHeld = !isHeld;
  byId("pause").setAttribute("aria-pressed", String(isHeld));
  if (!isHeld) drawFrames();
});

// --- The stream, which comes back by itself.

const silence = 10000;
let stream;
let watch;

function say(text, isGood) {
  const live = byId("live");
  setText(live, text);
  live.className = isGood ? "mark good" : "mark bad";
}

function heard() {
  say("Live", true);
  clearTimeout(watch);
  watch = setTimeout(begin, silence);
}

function lost() {
  say("The connection to the gateway is lost; it is tried again. What stands here is the last that came.", false);
}

function begin() {
  if (stream) {
    stream.close();
    lost();
  }
  stream = new EventSource("events");
  stream.addEventListener("status", (event) => {
    heard();
    showStatus(JSON.parse(event.data));
  });
  stream.addEventListener("frames", (event) => {
    const came = JSON.parse(event.data);
    showFrames(came.frames, came.left);
  });
  stream.addEventListener("error", lost);
  clearTimeout(watch);
  // A stream that the server has refused does not come back by itself.
  watch = setTimeout(begin, silence);
}

begin();
