// What all tests of readers begin with: the logs, the program, and reasons to skip.
import { execFileSync } from "node:child_process";
import { existsSync, mkdtempSync, rmSync } from "node:fs";
import { createRequire } from "node:module";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { fileURLToPath } from "node:url";

export function skip(reason) {
  console.log(`skipped: ${reason}`);
  process.exit(77);
}

/** The logs that are the same each time; a fresh sample has others. */
const kept = fileURLToPath(new URL("../data/kept", import.meta.url));

/** The arguments of each test: TARNVIEW BUILD_FOLDER, where the packages are, [FOLDER_OF_LOGS]. */
export const [tarnview, folder, sample = kept] = process.argv.slice(2);
export const isKept = sample === kept;
export const logs = ["front", "back", "killed"].map(name => join(sample, `${name}.log`));
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
