// Chromium without a window, driven through the pipe of its debugging protocol. What it needs is on
// the machine: nothing is installed for it.
import { spawn } from "node:child_process";
import { existsSync, mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { delimiter, join } from "node:path";

const names = ["chromium", "chromium-browser", "google-chrome"];

/** The path of the program, or nothing. */
export function findBrowser() {
  return process.env.PATH.split(delimiter)
    .flatMap(folder => names.map(name => join(folder, name)))
    .find(existsSync);
}

/** One page. Errors of its scripts and of its console are collected in `errors`. */
export class Browser {
  errors = [];
  #calls = new Map();
  #next = 1;
  #rest = Buffer.alloc(0);

  static async open({ width = 1300, height = 1000 } = {}) {
    const browser = new Browser();
    await browser.#start(width, height);
    return browser;
  }

  async #start(width, height) {
    this.folder = mkdtempSync(join(tmpdir(), "tarnview-browser-"));
    this.program = spawn(
      findBrowser(),
      ["--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars", "--no-first-run",
       "--disable-background-networking", "--disable-component-update", "--disable-sync",
       // On a busy machine nothing is to be taken for hung.
       "--disable-hang-monitor", "--disable-gpu-watchdog",
       `--user-data-dir=${this.folder}`, `--window-size=${width},${height}`,
       "--remote-debugging-pipe", "about:blank"],
      { stdio: ["ignore", "ignore", "ignore", "pipe", "pipe"] });
    this.program.on("exit", () => this.#fail(new Error("the browser has ended")));
    this.program.stdio[3].on("error", () => {});
    this.program.stdio[4].on("data", piece => this.#receive(piece));
    const { targetInfos } = await this.send("Target.getTargets");
    const page = targetInfos.find(target => target.type === "page");
    const { sessionId } = await this.send("Target.attachToTarget",
                                          { targetId: page.targetId, flatten: true });
    this.session = sessionId;
    for (const domain of ["Page", "Runtime", "Log"]) await this.send(`${domain}.enable`);
    await this.send("Emulation.setDeviceMetricsOverride",
                    { width, height, deviceScaleFactor: 1, mobile: false });
  }

  #receive(piece) {
    this.#rest = Buffer.concat([this.#rest, piece]);
    for (let end = this.#rest.indexOf(0); end >= 0; end = this.#rest.indexOf(0)) {
      const message = JSON.parse(this.#rest.subarray(0, end));
      this.#rest = this.#rest.subarray(end + 1);
      const call = this.#calls.get(message.id);
      this.#calls.delete(message.id);
      if (message.error) call?.reject(new Error(`${call.method}: ${message.error.message}`));
      else if (call) call.resolve(message.result);
      else this.#note(message);
    }
  }

  #note({ method, params }) {
    if (method === "Runtime.exceptionThrown") {
      const { text, exception } = params.exceptionDetails;
      this.errors.push(`${text} ${exception?.description ?? ""}`);
    } else if (method === "Runtime.consoleAPICalled" && ["error", "assert"].includes(params.type)) {
      this.errors.push(params.args.map(it => it.value ?? it.description).join(" "));
    } else if (method === "Log.entryAdded" && params.entry.level === "error") {
      this.errors.push(`${params.entry.text} ${params.entry.url ?? ""}`);
    }
  }

  #fail(error) {
    for (const call of this.#calls.values()) call.reject(error);
    this.#calls.clear();
  }

  /** Fails when there is no answer within two minutes. */
  send(method, params = {}) {
    const id = this.#next++;
    const timeout = 120_000;
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => {
        this.#calls.delete(id);
        reject(new Error(`no answer within ${timeout / 1000} s: ${method} ` +
                         JSON.stringify(params).slice(0, 200)));
      }, timeout);
      const settle = done => value => { clearTimeout(timer); done(value); };
      this.#calls.set(id, { method, resolve: settle(resolve), reject: settle(reject) });
      this.program.stdio[3].write(
        JSON.stringify({ id, method, params, sessionId: this.session }) + "\0");
    });
  }

  /** The scheme is that of the system, "light" or "dark", as the page is told. */
  async load(url, scheme = "light") {
    await this.send("Emulation.setEmulatedMedia",
                    { features: [{ name: "prefers-color-scheme", value: scheme }] });
    await this.send("Page.navigate", { url });
    await this.until("document.readyState === 'complete' && location.href !== 'about:blank'");
  }

  /** The value of a JavaScript expression in the page. */
  async evaluate(expression) {
    const { result, exceptionDetails } = await this.send(
      "Runtime.evaluate", { expression, returnByValue: true, awaitPromise: true });
    if (exceptionDetails) {
      throw new Error(`${expression}: ${exceptionDetails.exception?.description}`);
    }
    return result.value;
  }

  /** Waits until the page is drawn anew, or half a second for a page that is not shown. */
  async nextFrame() {
    await this.evaluate(
      "new Promise(done => { requestAnimationFrame(done); setTimeout(done, 500); }).then(() => 1)");
  }

  /** Waits until an expression is true, and returns its value. */
  async until(expression, seconds = 30) {
    for (const end = Date.now() + seconds * 1000; ;) {
      const value = await this.evaluate(expression).catch(() => undefined);
      if (value) return value;
      if (Date.now() > end) throw new Error(`not within ${seconds} s: ${expression}`);
      await new Promise(resolve => setTimeout(resolve, 25));
    }
  }

  /** A key as a keyboard sends it: "a", "Enter", "ArrowLeft". */
  async press(key) {
    const text = key.length === 1 ? key : key === "Enter" ? "\r" : undefined;
    const code = { Enter: 13, Backspace: 8, Tab: 9, Escape: 27, ArrowLeft: 37, ArrowRight: 39 }[key];
    const event = { key, text, windowsVirtualKeyCode: code ?? key.toUpperCase().charCodeAt(0) };
    await this.send("Input.dispatchKeyEvent", { type: text ? "keyDown" : "rawKeyDown", ...event });
    await this.send("Input.dispatchKeyEvent", { type: "keyUp", ...event });
  }

  async type(text) {
    await this.send("Input.insertText", { text });
  }

  async click(x, y) {
    for (const type of ["mousePressed", "mouseReleased"]) {
      await this.send("Input.dispatchMouseEvent", { type, x, y, button: "left", clickCount: 1 });
    }
  }

  async drag(from, to, y) {
    const move = (type, x) => this.send("Input.dispatchMouseEvent",
                                        { type, x, y, button: "left", buttons: 1, clickCount: 1 });
    await move("mousePressed", from);
    await move("mouseMoved", (from + to) / 2);
    await move("mouseMoved", to);
    await move("mouseReleased", to);
  }

  async wheel(x, y, deltaY, { ctrl = false } = {}) {
    await this.send("Input.dispatchMouseEvent",
                    { type: "mouseWheel", x, y, deltaX: 0, deltaY, modifiers: ctrl ? 2 : 0 });
  }

  /** The middle of an element, as coordinates for click(). */
  async middleOf(selector) {
    return this.evaluate(`(() => {
      const it = document.querySelector(${JSON.stringify(selector)});
      it.scrollIntoView({block: "center"});
      const box = it.getBoundingClientRect();
      return [box.x + box.width / 2, box.y + box.height / 2]; })()`);
  }

  async picture(path, clip) {
    const { data } = await this.send("Page.captureScreenshot",
                                     { format: "png", clip, captureBeyondViewport: true });
    writeFileSync(path, Buffer.from(data, "base64"));
  }

  async close() {
    const ended = new Promise(resolve => this.program.once("exit", resolve));
    this.send("Browser.close").catch(() => {});
    const timeout = setTimeout(() => this.program.kill("SIGKILL"), 5000);
    await ended;
    clearTimeout(timeout);
    rmSync(this.folder, { recursive: true, force: true, maxRetries: 5 });
  }
}
