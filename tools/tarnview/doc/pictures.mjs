// Makes the pictures of docs/pictures from logs of package_search, in Chromium:
//   node pictures.mjs TARNVIEW FRONT_LOG BACK_LOG FOLDER
import { execFileSync } from "node:child_process";
import { mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { pathToFileURL } from "node:url";
import { Browser } from "../test/readers/browser.mjs";

const [tarnview, front, back, target] = process.argv.slice(2);
const folder = mkdtempSync(join(tmpdir(), "tarnview-pictures-"));
const run = (...args) => execFileSync(tarnview, [...args, front, back], { encoding: "utf8" });

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
    <pre><span style="color:#79b8ff">$ ${command}</span>\n${coloured}</pre>`;
}

const page = join(folder, "report.html"), terminal = join(folder, "terminal.html");
run("report", "--name", "http-request", "-o", page);
const choice = ["--name", "call-peer", "--slowest", "1"];
writeFileSync(terminal, terminalPage(`tarnview tree ${choice.join(" ")} front.log back.log`,
                                     run("tree", "--color", "always", ...choice)));

const browser = await Browser.open({ width: 1240, height: 900 });
const picture = async (scheme, name, height, prepare) => {
  await browser.load(pathToFileURL(page).href, scheme);
  await browser.evaluate(`(() => { ${prepare} })()`);
  await new Promise(resolve => setTimeout(resolve, 200));
  await browser.picture(join(target, name), { x: 0, y: 0, width: 1240, height, scale: 1 });
};
// The second request that asked the other instance, among what ran beside it.
await picture("light", "report-light.png", 900, `
  const call = rows.filter(it => it.name === "call-peer" && it.children.length)
    .sort((a, b) => a.begin - b.begin)[1];
  view = {from: call.begin - 12e3, to: call.begin + 18e3};
  choose(call.index, false);
  scroller.style.height = "470px";
  scroller.scrollTop = lanes.find(it => it.name.startsWith("front")).top - 30;`);
await picture("dark", "report-dark.png", 620,
              `document.querySelector("[aria-label='Flame chart']").style.marginTop = "0";
               for (const it of document.body.children) {
                 if (it.ariaLabel === "Timeline" || it.ariaLabel === "Details") it.hidden = true;
               }
               drawFlame();`);
await browser.load(pathToFileURL(terminal).href, "dark");
const { width, height } = await browser.evaluate(
  `(({width, height}) => ({width, height}))(document.querySelector("pre").getBoundingClientRect())`);
await browser.picture(join(target, "tree.png"), { x: 0, y: 0, width, height, scale: 1 });
await browser.close();
rmSync(folder, { recursive: true });
