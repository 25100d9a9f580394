// What is pushed, to a receiver that others wrote: it takes both encodings, and what arrives are the
// ended activities of the log, with their parents.
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { readLogs } from "./log.mjs";
import { logs, requireInstalled, tarnview } from "./setup.mjs";

const { MockOtlpServer } = requireInstalled("@elastic/mockotlpserver");
const digits = id => id.replaceAll("-", "").toLowerCase();
// Ids arrive as bytes from protobuf.
const hexadecimal = id => typeof id === "string" ? id : Buffer.from(id ?? []).toString("hex");

async function push(...options) {
  const received = [];
  const server = new MockOtlpServer({
    logLevel: "error", services: ["http"], httpHostname: "127.0.0.1", httpPort: 0,
    onTrace: trace => received.push(trace) });
  await server.start();
  const environment = Object.fromEntries(
    Object.entries(process.env).filter(([name]) => !name.startsWith("OTEL_")));
  const output = await new Promise((resolve, reject) => {
    const child = spawn(tarnview, ["push", ...options, server.httpUrl.origin, ...logs],
                        { stdio: ["ignore", "pipe", "inherit"], env: environment });
    let out = "";
    child.stdout.on("data", text => out += text);
    child.on("exit", code => code === 0 ? resolve(out) : reject(new Error(`ended with ${code}`)));
  });
  await server.close();
  const spans = received.flatMap(it => it.resourceSpans).flatMap(it => it.scopeSpans)
    .flatMap(it => it.spans);
  assert.match(output, new RegExp(`^sent ${spans.length}, rejected 0, `));
  return spans.map(span => [hexadecimal(span.traceId), hexadecimal(span.spanId), span.name].join(" "))
    .sort();
}

const expected = readLogs(logs).activities.filter(it => it.end !== null)
  .map(it => [digits(it.root), digits(it.id).slice(16), it.name].join(" ")).sort();
assert.ok(expected.length > 0);
// It takes nothing that is compressed.
for (const options of [[], ["--json"]]) {
  assert.deepEqual(await push(...options), expected, options.join(" "));
}
console.log(`${expected.length} spans, in both encodings`);
