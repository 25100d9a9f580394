// Makes the pictures of docs/pictures, in Chromium, from the logs in ../test/data/kept:
//   node pictures.mjs TARNVIEW FOLDER
// The page is used as a reader uses it, with keys, so that nothing here depends on its scripts.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join, resolve } from "node:path";
import { fileURLToPath, pathToFileURL } from "node:url";
import { Browser, findBrowser } from "../test/readers/browser.mjs";

const [tarnview, target] = process.argv.slice(2).map(it => resolve(it));
if (!findBrowser()) {
  console.log("skipped: there is no Chromium");
  process.exit(77);
}
const logs = fileURLToPath(new URL("../test/data/kept", import.meta.url));
const folder = mkdtempSync(join(tmpdir(), "tarnview-pictures-"));
process.on("exit", () => rmSync(folder, { recursive: true, force: true }));
const run = (...args) => execFileSync(
  tarnview, [...args, "front.log", "back.log"],
  { cwd: logs, encoding: "utf8", stdio: ["ignore", "pipe", "ignore"] });

// Text with the colours of a terminal, as a page.
const colours = { 1: "font-weight:bold", 2: "color:#8b949e", 31: "color:#ff7b72",
                  33: "color:#e3b341", 36: "color:#39c5cf" };
function terminalPage(command, text) {
  const escaped = text.replace(/&/g, "&amp;").replace(/</g, "&lt;");
  const coloured = escaped.replace(/\x1b\[(\d+)m/g, (_, code) =>
    code === "0" ? "</span>" : `<span style="${colours[code]}">`);
  return `<!doctype html><meta charset="utf-8"><style>
    body { margin: 0; background: #14171c; } pre { display: inline-block; margin: 0; padding: 14px 18px;
    font: 13px/1.35 "DejaVu Sans Mono", monospace; color: #e4e7ec; }</style>
    <pre><span style="color:#79b8ff">$ ${command}</span>\n${coloured.trimEnd()}</pre>`;
}

let browser;

/** The distinct colours of a picture: a page that shows nothing has a handful. */
const coloursOf = path => browser.evaluate(`(async () => {
  const image = new Image();
  image.src = "data:image/png;base64,${readFileSync(path).toString("base64")}";
  await image.decode();
  const canvas = new OffscreenCanvas(image.width, image.height), context = canvas.getContext("2d");
  context.drawImage(image, 0, 0);
  const { data } = context.getImageData(0, 0, image.width, image.height);
  return new Set(new Uint32Array(data.buffer)).size; })()`);

/** From the beginning of one element to the end of another, `margin` around them. */
async function picture(name, first, last = first, margin = 0) {
  const clip = await browser.evaluate(`(() => {
    const [a, b] = ${JSON.stringify([first, last])}.map(it => document.querySelector(it).getBoundingClientRect());
    const x = Math.max(0, Math.min(a.left, b.left) + scrollX - ${margin});
    const y = Math.max(0, a.top + scrollY - ${margin});
    return { x, y, width: Math.max(a.right, b.right) + scrollX + ${margin} - x,
             height: b.bottom + scrollY + ${margin} - y, scale: 1 }; })()`);
  const path = join(target, name);
  await browser.picture(path, clip);
  const colours = await coloursOf(path);
  assert.ok(colours > 20, `${name} has ${colours} colours`);
  console.log(name);
}

async function inBrowser(options, actions) {
  browser = await Browser.open(options);
  try {
    await actions();
    assert.deepEqual(browser.errors, []);
  } finally {
    await browser.close();
  }
}

/** The report, with what is found by the text chosen, and some time around it. */
async function showReport(page, scheme, text, around) {
  await browser.load(pathToFileURL(page).href, scheme);
  // Keys mean nothing before the data are there.
  await browser.until("document.body.ariaBusy === 'false'");
  await browser.press("/");
  await browser.type(text);
  for (const key of ["Enter", "Escape", ..."-".repeat(around)]) await browser.press(key);
  await browser.nextFrame();
  assert.match(await browser.evaluate("document.querySelector('#details').innerText"),
               new RegExp(text), "the picture shows what was found");
}

const choice = ["--name", "call-peer", "--slowest", "1"];
const terminal = join(folder, "terminal.html"), page = join(folder, "report.html");
writeFileSync(terminal, terminalPage(`tarnview tree ${choice.join(" ")} front.log back.log`,
                                     run("tree", "--color", "always", ...choice)));
run("report", "--name", "http-request", "-o", page);
const section = name => `section[aria-label="${name}"]`;

await inBrowser({ width: 1240, height: 900 }, async () => {
  await browser.load(pathToFileURL(terminal).href, "dark");
  await picture("tree.png", "pre");
  await showReport(page, "light", "call-peer", 8);
  await picture("report-light.png", "header", section("Request"), 8);
  await showReport(page, "dark", "call-peer", 8);
  await picture("report-dark.png", section("By name"), section("Failures"), 8);
  await picture("flame.png", section("Flame chart"), section("Flame chart"), 8);
});
await inBrowser({ width: 420, height: 800 }, async () => {
  await showReport(page, "light", "call-peer", 8);
  await picture("report-narrow.png", "header", section("Request"), 8);
});
