// The log as these tests understand it, read without tarnview, so that both can be compared.
import { readFileSync } from "node:fs";

const microseconds = time => Date.parse(time.slice(0, 23) + "Z") * 1000 + Number(time.slice(23, 26));

// The times of the two lines are finer than the time that is logged, if no clock was set between.
function durationOf(begin, end, logged) {
  const measured = end - begin;
  return measured >= logged && measured < logged + 2000 ? measured : logged;
}

/** All activities of the files; times in microseconds, `end` null for what never ended. */
export function readLogs(paths) {
  const all = [];
  const open = new Map();
  let last = 0;
  for (const path of paths) {
    for (const text of readFileSync(path, "utf8").split("\n")) {
      const line = text && JSON.parse(text);
      if (!line?.activity) continue;
      const { activity, pid, tid } = line;
      const time = microseconds(line.time), key = `${pid} ${activity.id}`;
      last = Math.max(last, time);
      if (activity.type === "begin") {
        const begun = { id: activity.id, name: activity.name, pid, tid, begin: time, end: null,
                        sponsor: activity.sponsor, root: activity.root ?? activity.id,
                        user: line.user, site: line.site, beginBody: line.body };
        if (open.has(key)) throw new Error(`${key} is open twice; these tests know nothing of it`);
        open.set(key, begun);
        all.push(begun);
      } else {
        const begun = open.get(key);
        open.delete(key);
        const logged = Math.round(activity.elapsed * 1e6);
        begun.duration = durationOf(begun.begin, time, logged);
        begun.end = begun.begin + begun.duration;
        Object.assign(begun, { elapsed: logged, exclusive: Math.round(activity.exclusive * 1e6),
                               result: activity.rk, details: activity.rv, res: activity.res,
                               attributes: line.attributes, endBody: line.body, user: line.user });
      }
    }
  }
  // What never ended is drawn a microsecond beyond the last line.
  for (const activity of all) {
    activity.lastKnown = activity.end ?? last + 1;
    activity.duration ??= last + 1 - activity.begin;
  }
  const byId = new Map(all.map(activity => [activity.id, activity]));
  for (const activity of all) {
    const sponsor = byId.get(activity.sponsor);
    activity.parent = sponsor === activity ? undefined : sponsor;
    activity.isHandedOver = !!sponsor && (sponsor.pid !== activity.pid || sponsor.tid !== activity.tid);
  }
  return { activities: all, first: Math.min(...all.map(it => it.begin)), last };
}

/** What an activity spent in itself: its time less that of its children on its own thread. */
export function ownTime(activity, activities) {
  return activities.filter(it => it.parent === activity && !it.isHandedOver)
    .reduce((rest, child) => rest - child.duration, activity.duration);
}

/** The time in which none of its children ran, on any thread; an answer is a child of its call. */
export function selfTime(activity, activities) {
  const isCall = it => it.name === "call-peer" && it === activity;
  const isChild = it => it.parent === activity ||
    (!it.parent && it.sponsor === it.id && isCall(activity) && it.root === activity.root &&
     it.begin >= activity.begin && it.begin <= activity.end);
  let rest = activity.duration, reached = activity.begin;
  const children = activities.filter(isChild).sort((a, b) => a.begin - b.begin);
  for (const { begin, duration, end } of children) {
    const last = Math.min(end === null ? Infinity : begin + duration, activity.end);
    rest -= Math.max(last - Math.max(begin, reached), 0);
    reached = Math.max(reached, last);
  }
  return rest;
}

/** Sums of `value` for each key. */
export function sums(activities, keyOf, value) {
  const result = new Map();
  for (const activity of activities) {
    const key = keyOf(activity);
    result.set(key, (result.get(key) ?? 0) + value(activity));
  }
  return result;
}
