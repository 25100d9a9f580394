// The export for OpenTelemetry, sent to a receiver as the documentation says: it takes every line,
// and what arrives are the activities of the log.
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { readFileSync } from "node:fs";
import { join } from "node:path";
import { readLogs } from "./log.mjs";
import { logs, requireInstalled, run, scratch } from "./setup.mjs";

const { MockOtlpServer } = requireInstalled("@elastic/mockotlpserver");
const received = [], requests = [];
const server = new MockOtlpServer({
  logLevel: "error", services: ["http"], httpHostname: "127.0.0.1", httpPort: 0,
  onTrace: trace => received.push(trace), onRequest: request => requests.push(request) });
await server.start();

// The command is the one of the documentation, word by word.
const manual = readFileSync(new URL("../../../../docs/tarnview.md", import.meta.url), "utf8");
const [, command] = manual.match(/`(while .*? done)`/) ?? [];
assert.ok(command, "docs/tarnview.md has no command that sends spans");
const spans = join(scratch(), "spans.jsonl");
run("export", "--to", "otlp", "-o", spans, ...logs);
const script = `${command.replaceAll("URL", server.httpUrl.origin)} <'${spans}'`;
const answers = await new Promise((resolve, reject) => {
  const shell = spawn("bash", ["-euc", script], { stdio: ["ignore", "pipe", "pipe"] });
  let out = "", err = "";
  shell.stdout.on("data", text => out += text);
  shell.stderr.on("data", text => err += text);
  shell.on("exit", code => code === 0 ? resolve(out) : reject(new Error(`${script}: ${err}`)));
});
await server.close();

const lines = readFileSync(spans, "utf8").trimEnd().split("\n").length;
assert.equal(requests.length, lines);
assert.equal(received.length, lines, answers);
const all = received.flatMap(it => it.resourceSpans).flatMap(
  ({ resource, scopeSpans }) => scopeSpans.flatMap(it => it.spans).map(span => ({ resource, span })));
const { activities } = readLogs(logs);
const digits = id => id.replaceAll("-", "").toLowerCase();
const describe = (trace, span, name, pid, start, end) => [trace, span, name, pid, start, end].join(" ");
assert.deepEqual(
  all.map(({ resource, span }) => describe(
    span.traceId, span.spanId, span.name,
    resource.attributes.find(it => it.key === "process.pid").value.intValue,
    span.startTimeUnixNano, span.endTimeUnixNano)).sort(),
  activities.map(it => describe(digits(it.root), digits(it.id).slice(16), it.name, it.pid,
                                `${it.begin}000`, `${it.lastKnown}000`)).sort());
console.log(`${lines} requests, ${all.length} spans`);
