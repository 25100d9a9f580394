// The export for OpenTelemetry against the protobuf schema: each line is an export request in which
// every field is known and of the right kind, it survives the way through protobuf, and the spans
// are the activities of the log.
import assert from "node:assert/strict";
import { join } from "node:path";
import { readLogs } from "./log.mjs";
import { logs, packageFolder, requireInstalled, run } from "./setup.mjs";

const protobuf = requireInstalled("protobufjs");
const folder = packageFolder("@elastic/mockotlpserver");
const root = new protobuf.Root();
root.resolvePath = (origin, path) => join(folder, path.slice(path.indexOf("opentelemetry/")));
root.loadSync("opentelemetry/proto/collector/trace/v1/trace_service.proto");
root.resolveAll();
const Request = root.lookupType("opentelemetry.proto.collector.trace.v1.ExportTraceServiceRequest");

// In the JSON of OpenTelemetry these bytes are written in hexadecimal, not in base 64.
const hexadecimal = { traceId: 32, spanId: 16, parentSpanId: 16 };

/** What protobuf's own JSON would be; throws at anything that the schema does not know. */
function strict(type, message, path) {
  const result = {}, groups = new Map();
  for (const [name, value] of Object.entries(message)) {
    const field = type.fields[name], where = `${path}.${name}`;
    assert.ok(field, `${where} is no field of ${type.name}`);
    if (field.partOf) {
      assert.ok(!groups.has(field.partOf), `${where}: ${groups.get(field.partOf)} is set as well`);
      groups.set(field.partOf, name);
    }
    assert.equal(Array.isArray(value), field.repeated, `${where} is ${field.repeated ? "no" : "a"} list`);
    result[name] = field.repeated
      ? value.map((item, index) => strictValue(field, item, `${where}[${index}]`))
      : strictValue(field, value, where);
  }
  return result;
}

function strictValue(field, value, where) {
  if (field.resolvedType instanceof protobuf.Type) {
    assert.ok(value !== null && typeof value === "object", `${where} is no message`);
    return strict(field.resolvedType, value, where);
  }
  if (field.resolvedType instanceof protobuf.Enum) {
    assert.ok(field.resolvedType.valuesById[value] !== undefined, `${where}: no such ${field.type}`);
    return value;
  }
  if (/^(s?fixed64|u?int64)$/.test(field.type)) {
    assert.match(value, /^-?\d+$/, `${where} is no decimal text`);
    return value;
  }
  if (field.type === "bytes") {
    assert.match(value, new RegExp(`^[0-9a-f]{${hexadecimal[field.name]}}$`), where);
    return Buffer.from(value, "hex").toString("base64");
  }
  const kind = { string: "string", bool: "boolean" }[field.type] ?? "number";
  assert.equal(typeof value, kind, `${where} is no ${kind}`);
  return value;
}

const options = { longs: String, bytes: String };
const valueOf = ({ value }) => Object.values(value)[0];
const tableOf = attributes => {
  const table = Object.fromEntries(attributes.map(it => [it.key, valueOf(it)]));
  assert.equal(Object.keys(table).length, attributes.length, "a key occurs twice");
  return table;
};

const spans = new Map();
for (const [number, line] of run("export", "--to", "otlp", ...logs).trimEnd().split("\n").entries()) {
  const message = strict(Request, JSON.parse(line), `line ${number + 1}: `);
  const decoded = Request.toObject(Request.decode(Request.encode(Request.fromObject(message)).finish()),
                                   options);
  assert.deepEqual(decoded, message, `line ${number + 1} changes on its way through protobuf`);
  for (const { resource, scopeSpans } of decoded.resourceSpans) {
    for (const span of scopeSpans.flatMap(it => it.spans)) {
      const id = Buffer.from(span.spanId, "base64").toString("hex");
      assert.ok(!spans.has(id), `${id} occurs twice`);
      spans.set(id, { ...span, resource: tableOf(resource.attributes),
                      attributes: tableOf(span.attributes) });
    }
  }
}

// One by one against the log.
const { activities } = readLogs(logs);
const digits = id => id.replaceAll("-", "").toLowerCase();
const hex = bytes => Buffer.from(bytes ?? "", "base64").toString("hex");
const ended = activities.filter(it => it.end !== null);
assert.equal(spans.size, activities.length);
for (const activity of activities.filter(it => it.end === null)) {
  const span = spans.get(digits(activity.id).slice(16));
  assert.deepEqual([span.status.code, span.status.message], [2, "never ended"], activity.id);
}
assert.ok(ended.length < activities.length, "the sample has nothing that never ended");
let failed = 0, supplements = 0;
for (const activity of ended) {
  const what = `${activity.name} ${activity.id}`;
  const span = spans.get(digits(activity.id).slice(16));
  assert.ok(span, `${what} is missing`);
  assert.equal(span.name, activity.name, what);
  assert.equal(hex(span.traceId), digits(activity.root), what);
  if (activity.sponsor !== activity.id) {
    assert.equal(hex(span.parentSpanId), digits(activity.sponsor ?? "").slice(16), what);
  } else {
    assert.equal(spans.get(hex(span.parentSpanId)).name, "call-peer", what);
  }
  assert.equal(span.startTimeUnixNano, `${activity.begin}000`, what);
  assert.equal(span.endTimeUnixNano, `${activity.end}000`, what);
  const isEarly = activity.result === "early-termination";
  assert.equal(span.status.code, activity.result === "ok" ? 1 : isEarly ? undefined : 2, what);
  if (span.status.code === 2) {
    ++failed;
    assert.equal(span.status.message, activity.details.msg, what);
  }
  assert.deepEqual([span.resource["service.name"], span.resource["process.pid"]],
                   [activity.site, String(activity.pid)], what);
  assert.equal(span.attributes["thread.id"], String(activity.tid), what);
  assert.equal(span.attributes["enduser.id"], activity.user === "-" ? undefined : activity.user, what);
  assert.equal(span.attributes["tarn.allocated.exclusive"], String(activity.res.alloc.ae), what);
  for (const [name, value] of Object.entries({ ...activity.beginBody, ...activity.endBody })) {
    if (name !== "logs") assert.equal(String(span.attributes[`body.${name}`]), String(value), what);
  }
  const notes = activity.endBody.logs ?? [];
  supplements += notes.length;
  assert.equal(span.events?.length ?? 0, notes.length, what);
  for (const [index, note] of notes.entries()) {
    const table = tableOf(span.events[index].attributes);
    for (const [name, value] of Object.entries(note)) {
      if (name !== "begin") assert.equal(String(table[name]), String(value), what);
    }
  }
}
assert.ok(failed > 0 && supplements > 0, "the sample has no failures or no supplements");
console.log(`${spans.size} spans, ${failed} failed, ${supplements} supplements`);
