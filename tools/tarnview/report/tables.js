// Tables: figures by name, as `tarnview top` has them but with finer times, and what is not good.
function cell(row, content, name) {
  const it = row.insertCell();
  it.append(content);
  if (name) it.className = name;
}
// The smallest value that a share of all does not exceed. The lengths are sorted.
const quantile = (lengths, share) =>
  lengths.length ? lengths[Math.max(Math.ceil(share * lengths.length) - 1, 0)] : 0;
const groups = new Map();
for (const row of rows) {
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
  const lengths = group.lengths.sort((a, b) => a - b);
  if (!group.count) {  // nothing of it has ended: there are no times
    for (const name of ["total", "mean", "p50", "p90", "p99", "max", "exclusive"]) group[name] = null;
    continue;
  }
  group.mean = group.total / group.count;
  [group.p50, group.p90, group.p99, group.max] = [0.5, 0.9, 0.99, 1].map(it => quantile(lengths, it));
}
const columns = [["name"], ["count"], ["failed", null, "bad"], ["early", null, "bad"],
                 ["open", null, "bad"], ["total", duration], ["mean", duration], ["p50", duration],
                 ["p90", duration], ["p99", duration], ["max", duration], ["exclusive", duration],
                 ["cpu", duration], ["memory", bytes]];
let sortedBy = "total", isReversed = false;
function drawTop() {
  const table = element("top");
  table.textContent = "";
  const head = table.createTHead().insertRow();
  for (const [name] of columns) {
    const heading = document.createElement("th"), button = document.createElement("button");
    button.textContent = name;
    button.onclick = () => {
      isReversed = sortedBy === name && !isReversed;
      sortedBy = name;
      drawTop();
      table.querySelectorAll("th button")[columns.findIndex(it => it[0] === name)].focus();
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
    for (const [name, format, badness] of columns) {
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
function drawFailures() {
  const table = element("failures"), most = 1000;
  const failed = rows.filter(row => row.state).sort((a, b) => a.begin - b.begin);
  const head = table.createTHead().insertRow(), body = table.createTBody();
  for (const name of ["begin", "name", "result", "more", "elapsed", "where"]) {
    const heading = document.createElement("th");
    heading.textContent = name;
    if (!["begin", "elapsed"].includes(name)) heading.className = "left";
    head.append(heading);
  }
  for (const row of failed.slice(0, most)) {
    const line = body.insertRow();
    line.tabIndex = 0;
    line.dataset.index = row.index;
    const show = () => { choose(row.index, true); scroller.scrollIntoView({block: "center"}); };
    line.onclick = show;
    line.onkeydown = event => { if (event.key === "Enter") show(); };
    cell(line, duration(row.begin));
    cell(line, row.name, "left");
    cell(line, row.result, row.state === 1 ? "left bad" : "left");
    cell(line, row.detail, "left wide");
    cell(line, isOpen(row) ? "" : duration(row.length));
    cell(line, lanes[row.lane].name, "left");
  }
  if (!failed.length) cell(body.insertRow(), "None.", "left");
  if (failed.length > most) cell(body.insertRow(), `and ${failed.length - most} more`, "left");
}
{
  const count = state => rows.filter(row => row.state === state).length;
  element("summary").textContent = `${rows.length} activities on ${lanes.length} lanes, ` +
    `${count(1)} failed, ${count(2)} terminated early, ${count(3)} never ended; ` +
    `${duration(end)} from ${data.base}`;
}
function drawAll() { drawTimeline(); drawFlame(); }
flameRoot = buildFlame("self");
drawAll(); drawTop(); drawFailures();
addEventListener("resize", drawAll);
dark.addEventListener("change", drawAll);
