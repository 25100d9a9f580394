// Tables: figures by name, as `tarnview top` has them but with finer times, and what is not good.
function cell(row, content, name) {
  const it = row.insertCell();
  it.append(content);
  if (name) it.className = name;
}
// The smallest value that a share of all does not exceed. The lengths are sorted.
const quantile = (lengths, share) =>
  lengths.length ? lengths[Math.max(Math.ceil(share * lengths.length) - 1, 0)] : 0;
let groups = new Map();
function makeGroups(shown) {
  groups = new Map();
  for (const row of shown) {
    if (!groups.has(row.name)) {
      groups.set(row.name, {name: row.name, count: 0, failed: 0, early: 0, open: 0, total: 0, mean: 0,
                            exclusive: 0, cpu: null, memory: null, lengths: []});
    }
    const group = groups.get(row.name);
    if (isOpen(row)) { ++group.open; continue; }
    ++group.count;
    group.failed += row.state === 1 ? 1 : 0;
    group.early += row.state === 2 ? 1 : 0;
    group.total += row.length;
    group.lengths.push(row.length);
    group.exclusive += row.exclusive;
    for (const figure of ["cpu", "memory"]) {
      if (row[figure] !== null) group[figure] += row[figure];
    }
  }
  for (const group of groups.values()) {
    const lengths = Float64Array.from(group.lengths).sort();
    if (!group.count) {  // nothing of it has ended: there are no times
      for (const name of ["total", "mean", "p50", "p90", "p99", "max", "exclusive"]) group[name] = null;
      continue;
    }
    group.mean = group.total / group.count;
    [group.p50, group.p90, group.p99, group.max] = [0.5, 0.9, 0.99, 1].map(it => quantile(lengths, it));
  }
}
const topColumns = [["name"], ["count"], ["failed", null, "bad"], ["early", null, "bad"],
                    ["open", null, "bad"], ["total", duration], ["mean", duration], ["p50", duration],
                    ["p90", duration], ["p99", duration], ["max", duration], ["exclusive", duration],
                    ["cpu", duration], ["memory", bytes]];
let sortedBy = "total", isReversed = false;
function drawTop() {
  const table = element("top");
  table.textContent = "";
  const head = table.createTHead().insertRow();
  for (const [name] of topColumns) {
    const heading = document.createElement("th"), button = document.createElement("button");
    button.textContent = name;
    button.onclick = () => {
      isReversed = sortedBy === name && !isReversed;
      sortedBy = name;
      drawTop();
      table.querySelectorAll("th button")[topColumns.findIndex(it => it[0] === name)].focus();
    };
    if (name === sortedBy) {
      heading.ariaSort = (name === "name") === isReversed ? "descending" : "ascending";
    }
    heading.append(button);
    head.append(heading);
  }
  const body = table.createTBody(), sign = isReversed ? -1 : 1;
  const order = (a, b) => sign * (sortedBy === "name" ? a.name.localeCompare(b.name)
                                                      : b[sortedBy] - a[sortedBy]);
  for (const group of [...groups.values()].sort(order)) {
    const line = body.insertRow();
    for (const [name, format, badness] of topColumns) {
      if (name === "name") {
        const button = document.createElement("button");
        button.textContent = group.name;
        button.title = "Find in the timeline";
        button.onclick = () => search(group.name);
        cell(line, button);
      } else {
        const value = group[name];
        cell(line, value === null ? "" : format ? format(value) : String(value),
             group[name] ? badness : "");
      }
    }
  }
}
// Numbers and ids make messages differ that mean the same.
const alike = text => text.replace(/[0-9A-Fa-f]{8}-[0-9A-Fa-f-]{27}|\d+/g, "#");
// The columns of failures, with what they are sorted by; by itself what failed comes before what
// terminated early because of it.
const failureColumns = {
  count: kind => -kind.members.length, name: kind => kind.first.name, result: kind => kind.first.result,
  more: kind => kind.first.detail, first: kind => kind.first.begin, elapsed: null, where: null};
let failuresBy = null, areFailuresReversed = false;
const opened = new Set();  // groups of failures that show their members, with how many
const membersAtOnce = 200;
let openedCounts = new Map();
function drawFailures() {
  const table = element("failures"), kinds = new Map(), text = element("failureFilter").value.toLowerCase();
  table.textContent = "";
  for (const row of shownRows) {
    if (!row.state) continue;
    const key = [row.name, row.result, alike(row.detail)].join("\0");
    if (text && !(key.toLowerCase().includes(text) || row.detail.toLowerCase().includes(text))) continue;
    if (!kinds.has(key)) kinds.set(key, {key, first: row, members: []});
    kinds.get(key).members.push(row);  // they come in the order of their begins
  }
  const head = table.createTHead().insertRow(), body = table.createTBody();
  for (const [name, key] of Object.entries(failureColumns)) {
    const heading = document.createElement("th"), button = document.createElement("button");
    if (!["count", "first", "elapsed"].includes(name)) heading.className = "left";
    if (name === failuresBy) heading.ariaSort = areFailuresReversed ? "descending" : "ascending";
    button.textContent = name;
    button.onclick = () => {
      areFailuresReversed = failuresBy === name && !areFailuresReversed;
      failuresBy = name;
      drawFailures();
      table.querySelectorAll("th button")[Object.keys(failureColumns).indexOf(name)].focus();
    };
    heading.append(key ? button : name);
    head.append(heading);
  }
  const sign = areFailuresReversed ? -1 : 1, key = failureColumns[failuresBy];
  const order = (a, b) => key ? sign * (key(a) < key(b) ? -1 : key(a) > key(b) ? 1 : 0)
    : (a.first.state === 1 ? 0 : 1) - (b.first.state === 1 ? 0 : 1) ||
      b.members.length - a.members.length || a.first.begin - b.first.begin;
  for (const kind of [...kinds.values()].sort(order)) {
    const line = body.insertRow(), button = document.createElement("button"), row = kind.first;
    line.className = "kind";
    button.textContent = (opened.has(kind.key) ? "\u25be " : "\u25b8 ") + kind.members.length;
    button.ariaExpanded = String(opened.has(kind.key));
    button.ariaLabel = `${kind.members.length} ${row.name}, ${row.result}`;
    button.onclick = () => {
      if (!opened.delete(kind.key)) opened.add(kind.key);
      drawFailures();
      [...table.querySelectorAll(".kind button")].find(it => it.ariaLabel === button.ariaLabel)?.focus();
    };
    cell(line, button);
    cell(line, row.name, "left");
    cell(line, row.result, row.state === 1 ? "left bad" : "left");
    cell(line, kind.members.length > 1 ? alike(row.detail) : row.detail, "left wide");
    cell(line, moment(row.begin));
    cell(line, "");
    cell(line, "");
    if (opened.has(kind.key)) addMembers(body, kind);
  }
  if (!kinds.size) cell(body.insertRow(), "None.", "left");
}
function addMembers(body, kind) {
  const most = openedCounts.get(kind.key) ?? membersAtOnce;
  const members = kind.members;
  for (const row of members.slice(0, most)) {
    const line = body.insertRow();
    line.tabIndex = 0;
    line.dataset.index = row.index;
    const show = () => { choose(row.index, true); scroller.scrollIntoView({block: "center"}); };
    line.onclick = show;
    line.onkeydown = event => { if (event.key === "Enter") show(); };
    cell(line, "");
    cell(line, row.name, "left");
    cell(line, row.result, "left");
    cell(line, row.detail, "left wide");
    cell(line, moment(row.begin));
    cell(line, isOpen(row) ? "" : duration(row.length));
    cell(line, lanes[row.lane].name, "left");
  }
  if (members.length > most) {
    const button = document.createElement("button");
    button.textContent = `${members.length - most} more`;
    button.onclick = () => { openedCounts.set(kind.key, most + 10 * membersAtOnce); drawFailures(); };
    cell(body.insertRow(), button, "left");
  }
}
// Tables, sums and the flame chart are of all, or of what runs in the part of time that the timeline shows, or of what
// the search has found, or of both.
let shownRows = rows, following = 0;
function isInView(row) { return row.begin <= view.to && row.begin + row.length >= view.from; }
const areOfFound = () => element("areFound").checked && element("search").value !== "";
function drawTables() {
  shownRows = element("inView").checked ? rows.filter(isInView) : rows;
  if (areOfFound()) shownRows = shownRows.filter(row => found.has(row.index));
  makeGroups(shownRows);
  drawTop();
  drawFailures();
  startFlame();
  drawHeat();
  const count = state => shownRows.filter(row => row.state === state).length;
  element("shown").textContent = shownRows.length === rows.length ? "" :
    `${shownRows.length} activities ` + (areOfFound() ? "found " : "") + (element("inView").checked
      ? `from ${moment(view.from)} to ${moment(view.to)}, ` : "") + `${count(1)} failed`;
}
// Not at each step of a movement, but when it rests.
function followView() {
  clearTimeout(following);
  following = setTimeout(() => {
    if (element("inView").checked || element("areFound").checked) drawTables();
    saveLink();
  }, 150);
}
// The address names the chosen activity and the part of time, so that it can be passed on.
function saveLink() {
  const parts = [];
  if (chosen >= 0) parts.push("id=" + encodeURIComponent(rows[chosen].id), "row=" + chosen);
  if (view.from > 0 || view.to < end) parts.push(`from=${Math.round(view.from)}`, `to=${Math.round(view.to)}`);
  if (element("search").value) parts.push("find=" + encodeURIComponent(element("search").value));
  if (element("inView").checked) parts.push("inview=1");
  if (element("areFound").checked) parts.push("found=1");
  if (clock !== "utc") parts.push("clock=" + clock);
  history.replaceState(null, "", parts.length ? "#" + parts.join("&") : location.pathname + location.search);
}
function restoreLink() {
  const parts = new URLSearchParams(location.hash.slice(1));
  if (["utc", "local", "relative"].includes(parts.get("clock"))) {
    clock = element("clock").value = parts.get("clock");
  }
  element("inView").checked = parts.get("inview") === "1";
  element("areFound").checked = parts.get("found") === "1";
  if (parts.get("find")) { element("search").value = parts.get("find"); find(); }
  const id = parts.get("id"), row = Number(parts.get("row"));
  const index = rows[row]?.id === id ? row : rows.findIndex(it => it.id === id);
  if (index >= 0) choose(index, !parts.has("from"));
  const from = Number(parts.get("from")), to = Number(parts.get("to"));
  if (to > from) { view = {from, to}; clampView(); }
  if (location.hash) drawTables();
}
// What the tables are of, as a file: an object a line.
function download() {
  const lines = shownRows.map(row => JSON.stringify({
    name: row.name, id: row.id, begin: isoTime(row.begin), elapsed_seconds: isOpen(row) ? null : row.length / 1e6,
    result: row.result, where: lanes[row.lane].name,
    ...row.more}) + "\n");
  const anchor = document.createElement("a");
  anchor.href = URL.createObjectURL(new Blob(lines, {type: "application/x-ndjson"}));
  anchor.download = "activities.jsonl";
  anchor.click();
  URL.revokeObjectURL(anchor.href);
}
for (const id of ["inView", "areFound"]) element(id).onchange = () => { drawTables(); saveLink(); };
element("download").onclick = download;
element("failureFilter").oninput = drawFailures;
element("clock").onchange = () => {
  clock = element("clock").value;
  drawTimeline();
  drawTables();
  if (chosen >= 0) choose(chosen, false);
};
function drawAll() { drawTimeline(); drawFlame(); drawRequest(); drawHeat(); }
function start(data) {
  takeData(data);
  shownRows = rows;
  const counts = [0, 0, 0, 0];
  for (const state of columns.state) ++counts[state];
  element("summary").textContent = `${rows.length} activities on ${lanes.length} lanes, ` +
    `${counts[1]} failed, ${counts[2]} terminated early, ${counts[3]} never ended; ` +
    `${duration(end)} from ${base.text}`;
  document.body.ariaBusy = "false";
  drawAll(); drawTables(); restoreLink();
  addEventListener("resize", drawAll);
  dark.addEventListener("change", drawAll);
  new ResizeObserver(drawTimeline).observe(scroller);
  addEventListener("hashchange", restoreLink);
}
load(element("data").textContent).then(start).catch(error => {
  document.body.ariaBusy = "false";
  element("summary").textContent = "This browser cannot show the page: " + error;
});
