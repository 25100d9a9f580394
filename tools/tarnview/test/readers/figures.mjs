// Comparisons of figures. The kept logs give the same figures each time, which are compared to the
// last digit. Those of a fresh sample are others each time: between two programs that compute or
// round in their own way, the last digit may differ.
import assert from "node:assert/strict";
import { isKept } from "./setup.mjs";

const seconds = { ns: 1e-9, us: 1e-6, µs: 1e-6, ms: 1e-3, s: 1, min: 60 };
const units = ["B", "KB", "MB", "GB", "TB"];

/** "1.23ms (45%)" as [value, how far a rounded value may be from it], in seconds or bytes. */
export function amount(text, thousand = 1000) {
  const [, digits, unit] = text.match(/^(-?[\d.]+) ?(ns|us|µs|ms|s|min|[KMGTk]?B)/) ?? [];
  const power = units.indexOf(unit?.toUpperCase());
  const factor = seconds[unit] ?? (power < 0 ? undefined : thousand ** power);
  assert.ok(factor, `the page shows '${text}'`);
  const decimals = digits.split(".")[1]?.length ?? 0;
  return [Number(digits) * factor, 0.51 * 10 ** -decimals * factor];
}

/** That a page shows a value, rounded as it likes; returns what amount() does. */
export function assertShown(text, expected, what, thousand = 1000) {
  const [value, slack] = amount(text, thousand);
  assert.ok(Math.abs(value - expected) <= slack, `${what}: the page shows ${text}, not ${expected}`);
  return [value, slack];
}

/** That two programs have the same number. There is one zero. */
export function assertNumber(actual, expected, what) {
  assert.equal(typeof actual, "number", what);
  const slack = isKept ? 0 : 1e-9 * Math.max(1, Math.abs(expected));
  assert.ok(Math.abs(actual - expected) <= slack, `${what}: ${actual}, not ${expected}`);
}
