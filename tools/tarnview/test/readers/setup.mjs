// What all tests of readers begin with: the sample log, the program, and reasons to skip.
import { execFileSync } from "node:child_process";
import { existsSync, mkdtempSync, rmSync } from "node:fs";
import { createRequire } from "node:module";
import { tmpdir } from "node:os";
import { join } from "node:path";

export function skip(reason) {
  console.log(`skipped: ${reason}`);
  process.exit(77);
}

/** The arguments of each test: TARNVIEW BUILD_FOLDER, where the sample and the packages are. */
export const [tarnview, folder] = process.argv.slice(2);
export const logs = ["front", "back", "killed"].map(name => join(folder, "sample", `${name}.log`));
if (!logs.every(existsSync)) skip("there is no sample, see tarnview.readers.Sample");

/** The folder of an installed package. */
export function packageFolder(name) {
  const path = join(folder, "node_modules", name);
  if (!existsSync(path)) skip(`${name} could not be installed, see tarnview.readers.Install`);
  return path;
}

const requireHere = createRequire(join(folder, "package.json"));

/** An installed package, as require() gives it. */
export function requireInstalled(name) {
  packageFolder(name);
  return requireHere(name);
}

export function run(...args) {
  return execFileSync(tarnview, args, { encoding: "utf8", maxBuffer: 1 << 28,
                                        stdio: ["ignore", "pipe", "pipe"] });
}

/** The rows of `tarnview top` by name. */
export function topRows() {
  return new Map(JSON.parse(run("top", "--json", ...logs)).map(row => [row.name, row]));
}

/** A folder for this run, which is removed at its end. */
export function scratch() {
  const path = mkdtempSync(join(tmpdir(), "tarnview-reader-"));
  process.on("exit", () => rmSync(path, { recursive: true, force: true }));
  return path;
}
