// The chosen activity: all about it, and the way from it to others. Texts of the log are only ever
// set as text, never as markup.
function line(list, name, content) {
  const term = document.createElement("dt"), description = document.createElement("dd");
  term.textContent = name;
  description.append(...[content].flat());
  list.append(term, description);
}
function link(index, text) {
  const button = document.createElement("button");
  button.textContent = text;
  button.onclick = () => choose(index, true);
  return button;
}
function choose(index, isRevealed) {
  chosen = index;
  const row = rows[index], list = document.createElement("dl"), chain = [];
  for (let next = row.parent; next >= 0; next = rows[next].parent) {
    chain.push(...(chain.length ? [" < "] : []), link(next, rows[next].name));
  }
  line(list, "name", row.name);
  line(list, "result", row.result + (row.detail ? ": " + row.detail : ""));
  if (row.state) list.lastChild.className = "bad";
  line(list, "elapsed", isOpen(row) ? "until the log ends " + duration(row.length)
                                    : `${duration(row.length)}, exclusive ${duration(row.exclusive)}, ` +
                                      `itself ${duration(row.self)}`);
  line(list, "begin", `${day(row.begin)} ${timeOfDay(row.begin)}${clock === "local" ? " local" : " UTC"}, ` +
                      `${duration(row.begin)} after the first`);
  if (row.cpuAll !== null) {
    line(list, "cpu", `${duration(row.cpuAll)}, exclusive ${duration(row.cpu)}`);
  }
  if (row.memoryAll !== null) {
    line(list, "memory", `${bytes(row.memoryAll)}, exclusive ${bytes(row.memory)}`);
  }
  line(list, "where", lanes[row.lane].name);
  line(list, "id", row.id);
  for (const [name, text] of Object.entries(row.more)) line(list, name, text);
  line(list, "within", chain.length ? chain : "nothing");
  const most = 30;
  const children = row.children.slice(0, most).flatMap(
    child => [link(child, `${rows[child].name} ${duration(rows[child].length)}`), " "]);
  if (row.children.length > most) children.push(`and ${row.children.length - most} more`);
  line(list, "children", children.length ? children : "none");
  element("details").replaceChildren(list);
  drawRequest(row);
  if (isRevealed) reveal(row); else drawTimeline();
}

// From the chosen one: up and down the tree, and to what came before and after it.
function step(key) {
  if (chosen < 0) return choose(tops[0], true);
  const row = rows[chosen], siblings = row.parent >= 0 ? rows[row.parent].children : tops;
  const place = siblings.indexOf(chosen);
  const next = {p: row.parent, c: row.children[0], k: siblings[place - 1], j: siblings[place + 1]}[key];
  if (next >= 0) choose(next, true);
}

// Each text is looked at once, however many activities have it; an id by its beginning.
function find() {
  const text = element("search").value.toLowerCase();
  foundList = [];
  if (text) {
    const has = texts.having(text), wholeIds = ids.lowered();
    for (let index = 0, more = 0; index < rows.length; ++index) {
      let isHit = has[columns.name[index]] || has[columns.result[index]] || has[columns.detail[index]] ||
                  wholeIds.startsWith(text, ids.begin(index));
      for (; more < columns.moreEnd[index]; ++more) isHit ||= has[columns.moreText[more]];
      if (isHit) foundList.push(index);
    }
  }
  found = new Set(foundList);
  at = -1;
  element("hits").textContent = text ? foundList.length + " found" : "";
  drawTimeline();
}
function nextHit(direction = 1) {
  if (!foundList.length) return;
  at = at < 0 && direction < 0 ? foundList.length - 1
                               : (at + direction + foundList.length) % foundList.length;
  element("hits").textContent = `${at + 1} of ${foundList.length}`;
  choose(foundList[at], true);
}
function search(text) {
  element("search").value = text;
  find();
  nextHit();
  scroller.scrollIntoView({block: "center"});
}

document.addEventListener("keydown", event => {
  if (event.target.matches("input, select") || event.ctrlKey || event.metaKey || event.altKey) return;
  const actions = {"+": () => zoom(0.6), "=": () => zoom(0.6), "-": () => zoom(1.6), "0": showAll,
    n: () => nextHit(), N: () => nextHit(-1), "/": () => element("search").focus(),
    ArrowLeft: () => move(-0.2), ArrowRight: () => move(0.2)};
  for (const key of "pckj") actions[key] = () => step(key);
  if (actions[event.key] && rows.length) { event.preventDefault(); actions[event.key](); }
});
canvas.addEventListener("keydown", event => {
  if (event.key === "Enter" && rows.length) step("c");
  const step_ = {ArrowDown: 60, ArrowUp: -60}[event.key];
  if (step_) { event.preventDefault(); scroller.scrollTop += step_; }
});
element("in").onclick = () => zoom(0.6);
element("out").onclick = () => zoom(1.6);
element("all").onclick = showAll;
element("search").addEventListener("input", find);
element("search").addEventListener("keydown", event => {
  if (event.key === "Enter") nextHit(event.shiftKey ? -1 : 1);
  if (event.key === "Escape") { element("search").value = ""; find(); canvas.focus(); }
});
element("next").onclick = () => nextHit();
