// Makes the logs that the questions in docs/tarnview.md are asked of: two processes of a shop on a
// good Monday and on a Tuesday on which a table is slow from 10:00:20 on. The same in every run.
//
// Usage: node make.mjs FOLDER    writes monday.log, tuesday.log, monday-stock.log and tuesday-stock.log

import { writeFileSync } from 'node:fs';

const folder = process.argv[2];
const second = 1_000_000;

// A linear congruential generator: enough for a sample, and the same everywhere.
let state = 1n;
function random(limit) {
    state = (state * 6364136223846793005n + 1442695040888963407n) & 0xffffffffffffffffn;
    return Number((state >> 33n) % BigInt(limit));
}

let ids = 0;
function newId() {
    ids += 1;
    const hash = (BigInt(ids) * 0x9e3779b97f4a7c15n) & 0xffffffffffffffffn;
    const hex = hash.toString(16).padStart(16, '0').toUpperCase();
    return `${hex.slice(0, 8)}-${hex.slice(8, 12)}-4${hex.slice(13, 16)}-8000-${String(ids).padStart(12, '0')}`;
}

let start = 0;
let logs = {};

function timeText(time) {
    return `${new Date(start + Math.floor(time / 1000)).toISOString().slice(0, 19)}.${String(time % second).padStart(6, '0')}Z`;
}

function write(process, time, line) {
    logs[process].push({ time, order: logs[process].length, text: JSON.stringify({ time: timeText(time), ...line }) });
}

// An activity of a tree that is being made. Times are microseconds since the start of the day's log.
class Scope {
    constructor(name, begin, parent, options = {}) {
        Object.assign(this, { name, begin, parent, children: [], body: {}, ...options });
        this.process ??= parent?.process;
        this.thread ??= parent?.thread;
        this.owner ??= parent?.owner;
        this.id = newId();
        this.root = parent ? parent.root : this;
        this.depth = parent ? parent.depth + 1 : 0;
        this.cpu = 0;
        this.memory = 0;
        this.allocations = 0;
        parent?.children.push(this);
        this.line('begin', begin, {}, this.body);
    }

    line(type, time, more, body) {
        const top = this.depth === 0;
        const activity = { depth: this.depth, ...more.first, id: this.id, name: this.name };
        if (top) {
            activity['req-desc'] = this.owner.description;
        }
        Object.assign(activity, more.rest);
        if (!top) {
            activity.root = this.root.id;
        }
        Object.assign(activity, more.details);
        if (!top) {
            const isElsewhere = this.process !== this.parent.process;
            activity.sponsor = isElsewhere ? this.id : this.parent.id;
            if (isElsewhere) {
                activity.caller = this.parent.id;
            }
        }
        activity.type = type;
        write(this.process, time, {
            severity: 'info', event: `${type}-${this.name}`, pid: this.process, tid: this.thread,
            session: this.owner.session, request: this.owner.request, user: this.owner.user,
            site: this.process === 100 ? 'shop' : 'stock',
            environment: type === 'end' && top ? { env: 'live', host: 'vega' } : {},
            activity, attributes: { tenant: this.owner.tenant, vw: '-', wb: '-' }, body,
        });
    }

    // `cpu` in microseconds and `memory` in bytes are its own.
    finish(end, { cpu = 100, memory = 1000, result = 'ok', details = {}, body = {} } = {}) {
        const elapsed = Math.floor((end - this.begin) / 1000);
        const onThread = this.children.filter((it) => it.thread === this.thread && it.process === this.process && it.end);
        const below = this.children.filter((it) => it.process === this.process && it.end);
        const sum = (list, key) => list.reduce((total, it) => total + it[key], 0);
        this.end = end;
        this.elapsed = elapsed;
        this.result = result;
        this.cpu = cpu + sum(below, 'cpu');
        this.memory = memory + sum(below, 'memory');
        this.allocations = 1 + sum(below, 'allocations');
        const failed = (it) => it.result !== 'ok' && it.result !== 'early-termination';
        const early = (it) => it.result === 'early-termination';
        const own = this.depth === 0 ? [...below, this] : below;
        const rest = {
            res: {
                alloc: { ae: memory, ai: this.memory, ane: 1, ani: this.allocations },
                kcpu: { ke: 0, ki: 0 }, ntid: 1, ucpu: { ue: cpu, ui: this.cpu },
            },
            rk: result,
        };
        if (own.some(failed)) {
            rest.rnerr = own.filter(failed).length;
        }
        if (own.some(early)) {
            rest.rnterm = own.filter(early).length;
        }
        const first = { elapsed: elapsed / 1000, exclusive: (elapsed - sum(onThread, 'elapsed')) / 1000 };
        this.line('end', end, { first, rest, details: { rv: details } }, body);
        return end;
    }
}

function message(process, thread, time, severity, text) {
    write(process, time, { severity, message: text, pid: process, tid: thread });
}

const unwound = { msg: 'an exception caused early termination, but was not reported', type: 'stack-unwind' };

// One request of the shop; returns when it ended.
function order(number, begin, day) {
    const user = ['ada', 'bob', 'cleo'][random(3)];
    const owner = {
        description: `order ${1000 + number}`, request: `r-${number}`, session: `s-${1 + random(4)}`, user,
        tenant: random(2) ? 'north' : 'south',
    };
    const thread = 11 + number % 3;
    const shard = [0, 1, 2, 3, 3, 3][random(6)];
    const slow = day === 'tuesday' && shard === 3 && begin >= 20 * second;
    const top = new Scope('order', begin, null, { process: 100, thread, owner });
    let now = begin + 200 + random(200);

    const price = new Scope('price', now, top, { body: { items: 1 + random(5) } });
    now = price.finish(now + 1500 + random(1500), { cpu: 1200, memory: 4000 });

    const ask = new Scope('ask-stock', now += 100, top, { body: { peer: 'stock', shard } });
    const stock = new Scope('stock', now + 300, ask, { process: 200, thread: 31 + number % 2 });
    let there = now + 500;
    const lookup = new Scope('lookup', there, stock, { body: { shard } });
    if (slow) {
        message(200, stock.thread, there + 4000, 'warn', `shard ${shard} scans its table, an index is missing`);
    }
    there += slow ? 38_000 + random(30_000) : 2_000 + random(4_000);
    const isMissing = number % 13 === 5;
    if (isMissing) {
        lookup.finish(there, { result: 'exception', cpu: 900, memory: 2500, details: { msg: `no such item ${400 + number}`, type: 'NotFound' } });
        there = stock.finish(there + 150, { result: 'early-termination', details: unwound });
    } else {
        lookup.finish(there, { cpu: slow ? 20_000 : 900, memory: slow ? 900_000 : 2500, body: { rows: random(40) } });
        there = stock.finish(there + 150);
    }
    now = ask.finish(there + 300, isMissing ? { result: 'early-termination', details: unwound } : {});
    if (isMissing) {
        return top.finish(now + 100, { result: 'early-termination', details: unwound });
    }

    const audit = new Scope('audit', now + 50, top, { thread: 21 });
    audit.finish(now + 2_000 + random(1_000), { cpu: 500 });
    const pay = new Scope('pay', now += 80, top);
    const charge = new Scope('charge', now + 40, pay, { body: { 'card-type': ['blue', 'gold'][random(2)] } });
    now += 3_000 + random(3_000);
    const isDeclined = number % (day === 'tuesday' ? 5 : 11) === 3;
    if (isDeclined) {
        charge.finish(now, { result: 'exception', details: { msg: `card ${7000 + number} was declined`, type: 'Declined' } });
        now = pay.finish(now + 60, { result: 'early-termination', details: unwound });
        return top.finish(Math.max(now, audit.end) + 100, { result: 'early-termination', details: unwound });
    }
    charge.finish(now);
    now = pay.finish(now + 60);
    return top.finish(Math.max(now, audit.end) + 200, { cpu: 300 });
}

// A nightly job: many equal writes under one parent.
function report(begin) {
    const owner = { description: 'report of the day', request: 'r-report', session: '-', user: 'cron', tenant: '-' };
    const top = new Scope('report', begin, null, { process: 100, thread: 15, owner });
    let now = begin + 100;
    for (let page = 1; page <= 30; ++page) {
        const write = new Scope('write', now, top, { body: { page } });
        now = write.finish(now + 40 + random(60), { cpu: 20, memory: 300 }) + 5;
    }
    top.finish(now + 400);
}

// Work that hangs: the process was ended before it was done.
function hang(begin) {
    const owner = { description: 'refund 77', request: 'r-refund', session: 's-2', user: 'bob', tenant: 'south' };
    const top = new Scope('refund', begin, null, { process: 100, thread: 16, owner });
    new Scope('lock-account', begin + 300, top, { body: { account: 77 } });
}

for (const [day, date] of [['monday', '2026-03-02T10:00:00Z'], ['tuesday', '2026-03-03T10:00:00Z']]) {
    start = Date.parse(date);
    logs = { 100: [], 200: [] };
    for (let number = 1; number <= 28; ++number) {
        order(number, number * 2 * second + random(second), day);
    }
    report(40 * second);
    if (day === 'tuesday') {
        hang(52 * second);
    }
    for (const [process, name] of [[100, day], [200, `${day}-stock`]]) {
        const lines = logs[process].sort((a, b) => a.time - b.time || a.order - b.order);
        writeFileSync(`${folder}/${name}.log`, lines.map((it) => `${it.text}\n`).join(''));
    }
}
