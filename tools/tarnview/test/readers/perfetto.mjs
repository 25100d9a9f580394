// The export for trace viewers, loaded into Perfetto's trace processor: SQL over what it has
// understood gives the activities of the log, with their times, threads, nesting and arguments.
import assert from "node:assert/strict";
import { readFileSync, writeFileSync } from "node:fs";
import { join } from "node:path";
import { assertNumber } from "./figures.mjs";
import { readLogs } from "./log.mjs";
import { logs, run, scratch, topRows } from "./setup.mjs";
import { TraceProcessor } from "./trace-processor.mjs";

const { activities, first } = readLogs(logs);
const folder = scratch();

/** A trace processor that has loaded what tarnview exports of some logs. */
async function load(format, ...paths) {
  const trace = join(folder, "trace");
  run("export", "--to", format, "-o", trace, ...paths);
  const loaded = await TraceProcessor.create();
  loaded.load(readFileSync(trace));
  return loaded;
}

const processor = await load("chrome", ...logs);

const complaints = processor.query(`
  select name, value from stats
  where (severity in ('error', 'data_loss') or name like 'flow%') and value != 0`);
assert.deepEqual(complaints, []);

const slices = processor.query(`
  select slice.id as number, slice.parent_id as parent, slice.name as name, slice.ts as ts,
         slice.dur as dur, slice.depth as depth, slice.category as category,
         thread.tid as tid, process.pid as pid, process.name as process,
         extract_arg(slice.arg_set_id, 'args.id') as id,
         extract_arg(slice.arg_set_id, 'args.sponsor') as sponsor,
         extract_arg(slice.arg_set_id, 'args.user') as user,
         extract_arg(slice.arg_set_id, 'args.result') as result,
         extract_arg(slice.arg_set_id, 'args.elapsed-ms') as elapsed,
         extract_arg(slice.arg_set_id, 'args.exclusive-ms') as exclusive,
         extract_arg(slice.arg_set_id, 'args.allocated-exclusive-bytes') as memory
  from slice join thread_track on slice.track_id = thread_track.id
             join thread using (utid) join process using (upid)`);
assert.equal(slices.length, activities.length);

// One by one. Times are nanoseconds from a beginning of the processor's own.
const start = Math.min(...slices.map(it => it.ts));
const bySlice = new Map(slices.map(it => [it.number, it]));
const byId = new Map(slices.map(it => [it.id, it]));
for (const activity of activities) {
  const slice = byId.get(activity.id);
  const what = `${activity.name} ${activity.id}`;
  assert.ok(slice, `${what} is missing`);
  assert.equal(slice.name, activity.name, what);
  assert.equal((slice.ts - start) / 1000, activity.begin - first, what);
  assert.equal(slice.dur / 1000, activity.duration, what);
  assert.deepEqual([slice.pid, slice.tid], [activity.pid, activity.tid], what);
  assert.equal(slice.process, `${activity.site} ${activity.pid}`, what);
  assert.equal(slice.sponsor, activity.sponsor ?? null, what);
  assert.equal(slice.user, activity.user === "-" ? null : activity.user, what);
  assert.equal(slice.result, activity.result ?? "never ended", what);
  const isFailed = !["ok", "early-termination", undefined].includes(activity.result);
  assert.equal(slice.category, isFailed ? "failed" : "activity", what);
  if (activity.end !== null) {
    assertNumber(slice.elapsed, activity.elapsed / 1000, what);
    assertNumber(slice.exclusive, activity.exclusive / 1000, what);
    assert.equal(slice.memory, activity.res.alloc.ae, what);
  }
  // What ran on its sponsor's thread lies within it, unless it begins when that ends.
  const { parent } = activity;
  if (parent && !activity.isHandedOver && activity.begin < parent.lastKnown) {
    assert.equal(bySlice.get(slice.parent)?.id, parent.id, `${what} lies elsewhere`);
  } else {
    assert.equal(slice.depth, 0, `${what} lies within something`);
  }
}

// Arrows go from a sponsor to what it gave to another thread, and from what called the other
// instance to what it did there; that names no sponsor, only the root.
const arrows = new Set(processor.query("select slice_out, slice_in from flow").map(
  ({ slice_out, slice_in }) => `${bySlice.get(slice_out)?.id} ${bySlice.get(slice_in)?.id}`));
const handedOver = activities.filter(
  it => it.isHandedOver && it.parent.begin <= it.begin);
for (const { id, parent } of handedOver) {
  assert.ok(arrows.delete(`${parent.id} ${id}`), `there is no arrow to ${id}`);
}
const adopted = activities.filter(it => it.sponsor === it.id && it.root !== it.id);
assert.equal(arrows.size, adopted.length);
for (const arrow of arrows) {
  const [from, to] = arrow.split(" ").map(id => byId.get(id));
  assert.deepEqual([from.process.split(" ")[0], from.name, to.process.split(" ")[0], to.name],
                   ["front", "call-peer", "back", "http-request"]);
}

// Sums, by SQL and by tarnview.
const top = topRows();
for (const { name, number, total } of processor.query(
  "select name, count(*) as number, sum(dur) as total from slice group by name")) {
  const row = top.get(name);
  assert.equal(number, row.count + row.open, name);
  if (row.open) continue;
  assert.ok(total / 1e9 >= row.total_seconds && total / 1e9 < row.total_seconds + 0.002 * number,
            `${name}: ${total} ns, top ${row.total_seconds} s`);
}

// Where all begins in the same microsecond, and the sponsor's thread is after the other one where
// threads are sorted, no arrow is lost or goes elsewhere, and the nesting is the log's.
const atOnce = [["request", "", 9, 0], ["check", "request", 9, 1], ["load", "request", 1, 1],
                ["parse", "load", 1, 2], ["store", "parse", 5, 3]];
const lines = ["begin", "end"].flatMap(type => atOnce.map(([name, sponsor, tid, depth]) =>
  JSON.stringify({
    time: `2026-03-01T10:00:00.0${type === "begin" ? "00" : "10"}000Z`, event: `${type}-${name}`,
    pid: 1, tid, session: "-", request: "r", user: "-", site: "-", environment: {},
    activity: { depth, id: name, name, type, ...(sponsor && { sponsor, root: "request" }),
                ...(type === "end" && { elapsed: 0.01, exclusive: 0.01, rk: "ok", rv: {} }) },
    attributes: {}, body: {} })));
const path = join(folder, "at-once.log");
writeFileSync(path, lines.join("\n") + "\n");
const small = await load("chrome", path);
assert.deepEqual(small.query(`
  select a.name as sponsor, b.name as work from flow
  join slice a on a.id = slice_out join slice b on b.id = slice_in order by b.name`),
                 [{ sponsor: "request", work: "load" }, { sponsor: "parse", work: "store" }]);
assert.deepEqual(small.query("select name from slice where depth = 1 order by name"),
                 [{ name: "check" }, { name: "parse" }]);
// In its own form: the same slices at their times of day, with the same arguments, and those that
// cross others on their thread on tracks of their own.
const binary = await load("perfetto", ...logs);
assert.deepEqual(binary.query(`
  select name, value from stats
  where (severity in ('error', 'data_loss') or name like 'flow%') and value != 0`), []);
const own = binary.query(`
  select slice.id as number, slice.name as name, slice.ts as ts, slice.dur as dur,
         slice.category as category, extract_arg(slice.arg_set_id, 'debug.id') as id,
         extract_arg(slice.arg_set_id, 'debug.result') as result,
         extract_arg(slice.arg_set_id, 'debug.exclusive-us') as exclusive
  from slice`);
assert.equal(own.length, activities.length);
const ownById = new Map(own.map(it => [it.id, it]));
for (const activity of activities) {
  const what = `${activity.name} ${activity.id}`, slice = ownById.get(activity.id);
  assert.ok(slice, `${what} is missing`);
  assert.deepEqual([slice.name, slice.dur / 1000, slice.result],
                   [activity.name, activity.duration, activity.result ?? "never ended"], what);
  assert.equal(Math.round((slice.ts - Math.min(...own.map(it => it.ts))) / 1000), activity.begin - first, what);
}
assert.equal(binary.query("select count(*) as number from flow")[0].number,
             handedOver.length + adopted.length);

// What crosses on one thread: both are there, each with its own time.
const crossing = [["one", 0, 10], ["two", 5, 15]].flatMap(([name, from, to]) =>
  [["begin", from], ["end", to]].map(([type, ms]) => JSON.stringify({
    time: `2026-03-01T10:00:00.0${String(ms).padStart(2, "0")}000Z`, event: `${type}-${name}`,
    pid: 1, tid: 1, session: "-", request: "r", user: "-", site: "-", environment: {},
    activity: { depth: 0, id: name, name, type,
                ...(type === "end" && { elapsed: 0.01, exclusive: 0.01, rk: "ok", rv: {} }) },
    attributes: {}, body: {} }))).sort();
writeFileSync(path, crossing.join("\n") + "\n");
const crossed = await load("perfetto", path);
assert.deepEqual(crossed.query("select name, dur, depth from slice order by ts"),
                 [{ name: "one", dur: 10e6, depth: 0 }, { name: "two", dur: 10e6, depth: 0 }]);
console.log(`${slices.length} slices, ${handedOver.length} handed over, ${adopted.length} adopted`);
