// Heat map of what the tables are of: when an activity began and how long it took, the more there are
// the darker; beside it how many took so long in all.
const heatCell = 8, heatRow = 12, heatLabel = 64, classesOfDecade = 3;
let heat = null;
const classOf = length => length < 1 ? 0 : 1 + Math.floor(Math.log10(length) * classesOfDecade + 1e-9);
/** From so many microseconds on. */
const beginOfClass = number => number ? 10 ** ((number - 1) / classesOfDecade) : 0;
function makeHeat(width) {
  const barRoom = Math.round(width / 5), columnCount = Math.max(1, Math.floor((width - heatLabel - barRoom) / heatCell));
  const ended = shownRows.filter(row => !isOpen(row));
  const isPart = element("inView").checked, from = isPart ? view.from : 0, to = isPart ? view.to : end;
  const classes = ended.map(row => classOf(row.length));
  const first = classes.reduce((a, b) => Math.min(a, b), Infinity), last = classes.reduce((a, b) => Math.max(a, b), 0);
  const rowCount = ended.length ? last - first + 1 : 0;
  const cells = new Uint32Array(rowCount * columnCount), sums = new Uint32Array(rowCount);
  ended.forEach((row, place) => {
    const x = Math.floor((row.begin - from) / (to - from) * columnCount), level = classes[place] - first;
    ++cells[level * columnCount + Math.min(Math.max(x, 0), columnCount - 1)];
    ++sums[level];
  });
  return {cells, sums, first, rowCount, columnCount, barRoom, count: ended.length};
}
function drawHeat() {
  const canvas = element("heat"), width = canvas.clientWidth;
  if (!width || !rows.length) return;
  heat = makeHeat(width);
  const {cells, sums, first, rowCount, columnCount, barRoom} = heat;
  const context = prepare(canvas, width, Math.max(rowCount, 1) * heatRow + 2), ink = style("--text");
  const most = cells.reduce((a, b) => Math.max(a, b), 1), longest = sums.reduce((a, b) => Math.max(a, b), 1);
  for (let level = 0; level < rowCount; ++level) {
    const y = (rowCount - 1 - level) * heatRow;  // what took longest is at the top
    context.fillStyle = ink;
    context.fillText(duration(beginOfClass(first + level)), 4, y + heatRow / 2, heatLabel - 8);
    context.fillStyle = style("--mark");
    for (let x = 0; x < columnCount; ++x) {
      const count = cells[level * columnCount + x];
      if (!count) continue;
      context.globalAlpha = 0.2 + 0.8 * Math.log1p(count) / Math.log1p(most);
      context.fillRect(heatLabel + x * heatCell, y, heatCell - 1, heatRow - 1);
    }
    context.globalAlpha = 1;
    const long = sums[level] / longest * (barRoom - 60), x = heatLabel + columnCount * heatCell + 4;
    context.fillStyle = style("--faint");
    context.fillRect(x, y, Math.max(long, sums[level] ? 1 : 0), heatRow - 1);
    if (sums[level]) context.fillText(String(sums[level]), x + long + 4, y + heatRow / 2);
  }
  const lengths = Float64Array.from(shownRows.filter(row => !isOpen(row)), row => row.length).sort();
  element("heatInfo").textContent = !lengths.length ? "Nothing has ended." :
    `${lengths.length} activities: half took ${duration(quantile(lengths, 0.5))} or less, ` +
    `99 of 100 ${duration(quantile(lengths, 0.99))} or less, the longest ${duration(lengths.at(-1))}`;
}
