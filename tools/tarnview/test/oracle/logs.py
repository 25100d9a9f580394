"""Makes logs of which it is known what really happened."""

import json
import random

START = 1_772_359_200_000_000  # 2026-03-01T10:00:00Z, microseconds


def stamp(us):
    seconds, fraction = divmod(us, 1_000_000)
    days, rest = divmod(seconds, 86_400)
    hours, rest = divmod(rest, 3_600)
    minutes, seconds = divmod(rest, 60)
    # The logs lie within some days of March 2026.
    day = days - 20_513 + 1
    return f"2026-03-{day:02}T{hours:02}:{minutes:02}:{seconds:02}.{fraction:06}Z"


class Process:
    def __init__(self, pid, skew=0, host=None):
        self.pid = pid
        self.host = host  # as the ends of its roots name it
        self.skew = skew  # of its clock, microseconds
        self.lines = []   # (true time, order, line)


class Work:
    """An activity while it is made."""

    def __init__(self, process, thread, name, number, sponsor, begin, adopted=False):
        self.process, self.thread, self.name, self.begin = process, thread, name, begin
        self.id = f"{number:08X}-0000-4000-8000-{number * 7919 % (1 << 48):012X}"
        self.sponsor, self.adopted = sponsor, adopted
        self.root = sponsor.root if sponsor else self.id
        self.depth = sponsor.depth + 1 if sponsor else 0
        self.children_ms = 0
        self.is_open = True


class Log:
    def __init__(self, seed):
        self.random = random.Random(seed)
        self.files = {}
        self.order = 0
        self.number = 0

    def process(self, file, pid, skew=0, host=None):
        process = Process(pid, skew, host)
        self.files.setdefault(file, []).append(process)
        return process

    def write(self, process, time, line):
        self.order += 1
        line = {"time": stamp(START + time + process.skew), "severity": "info", **line}
        process.lines.append((time, self.order, json.dumps(line, separators=(",", ":"))))

    def message(self, process, time, text):
        self.write(process, time, {"message": text, "pid": process.pid, "tid": 1})

    def begin(self, process, thread, name, sponsor, time, adopted=False):
        self.number += 1
        work = Work(process, thread, name, self.number, sponsor, time, adopted)
        body = {"truth-skew": process.skew}
        if sponsor:
            body["truth-parent"] = sponsor.id
        self.line(work, "begin", time, body, {})
        return work

    def end(self, work, time, result="ok", process=None, thread=None):
        process = process or work.process
        thread = thread or work.thread
        elapsed = (time - work.begin) // 1000
        activity = {"elapsed": elapsed / 1000,
                    "exclusive": (elapsed - work.children_ms) / 1000,
                    "rk": result, "rv": {}}
        if self.number % 3:
            cpu = self.random.randrange(1, 5000)
            memory = self.random.randrange(0, 100_000)
            activity["res"] = {"alloc": {"ae": memory, "ai": memory, "ane": 1, "ani": 1},
                               "kcpu": {"ke": 0, "ki": 0}, "ucpu": {"ue": cpu, "ui": cpu}}
        self.line(work, "end", time, {}, activity, process, thread)
        if process is work.process:
            work.is_open = False
        around = self.around(work)
        if around and around.process is process and around.thread == thread:
            around.children_ms += elapsed

    @staticmethod
    def around(work):
        """The nearest one that is open, in the process."""
        if work.adopted:
            return None
        around = work.sponsor
        while around and not around.is_open and not around.adopted:
            around = around.sponsor
        return around if around and around.is_open else None

    def line(self, work, phase, time, body, more, process=None, thread=None):
        process = process or work.process
        activity = {"depth": work.depth, "id": work.id, "name": work.name, "type": phase, **more}
        if work.sponsor:
            around = self.around(work)
            activity["sponsor"] = work.id if work.adopted else around.id if around else work.root
            activity["root"] = work.root
        names_host = process.host and phase == "end" and not work.sponsor
        self.write(process, time, {
            "event": f"{phase}-{work.name}", "pid": process.pid, "tid": thread or work.thread,
            "session": "-", "request": work.root, "user": "ada", "site": "-",
            "environment": {"env": "live", "host": process.host} if names_host else {},
            "activity": activity, "attributes": {}, "body": body})

    def texts(self):
        """The text of each file: its lines in the order in which they were written."""
        return {file: "".join(text + "\n" for _, _, text in sorted(
            (line for process in processes for line in process.lines), key=lambda line: line[:2]))
            for file, processes in self.files.items()}


def short(log):
    process = log.process("short.log", 10)
    time = 0
    for _ in range(5):
        serve = log.begin(process, 1, "serve", None, time)
        time += 700
        for number in range(300):
            for name, least, most in (("lookup", 500, 700), ("decode", 15, 25)):
                step = log.begin(process, 1, name, serve, time)
                time += log.random.randrange(least, most)
                log.end(step, time, "exception" if number % 50 == 7 else "ok")
                time += log.random.randrange(0, 9)
        log.end(serve, time)
        time += 5000


def calls(log, skew):
    front = log.process("front.log", 20)
    back = log.process("back.log", 30, skew)
    time = 0
    for number in range(40):
        serve = log.begin(front, 1, "serve", None, time)
        time += log.random.randrange(100, 3000)
        call = log.begin(front, 1, "call", serve, time)
        time += log.random.randrange(200, 1000)
        answer = log.begin(back, 7, "answer", call, time, adopted=True)
        time += log.random.randrange(100, 9000)
        read = log.begin(back, 7, "read", answer, time)
        time += log.random.randrange(100, 9000)
        log.end(read, time, "early-termination" if number % 9 == 0 else "ok")
        time += log.random.randrange(100, 1000)
        log.end(answer, time)
        time += log.random.randrange(200, 1000)
        log.end(call, time)
        time += log.random.randrange(100, 1000)
        log.end(serve, time)
        time += log.random.randrange(1000, 20_000)


def near(log):
    calls(log, -5_000)


def far(log):
    calls(log, 3 * 3_600_000_000)


def fork(log):
    parent = log.process("fork.log", 40)
    child = log.process("fork.log", 41)
    serve = log.begin(parent, 1, "serve", None, 0)
    step = log.begin(parent, 1, "step", serve, 1_234)
    log.end(step, 4_321)
    own = log.begin(parent, 1, "after", serve, 7_000)
    log.end(own, 9_500)
    log.end(serve, 12_345, process=child)
    log.end(serve, 23_456)


def parallel(log):
    front = log.process("front.log", 50)
    back = log.process("back.log", 60, 5_000)
    for number in range(10):
        base = number * 200_000
        serve = log.begin(front, 1, "serve", None, base)
        begun, answers = [], []
        for call in range(3):
            begun.append(log.begin(front, 2 + call, f"call{call}", serve, base + 5_000 + 4_000 * call))
        for call in range(3):
            answers.append(log.begin(back, 7 + call, f"answer{call}", begun[call],
                                     base + 24_000 + 4_000 * call, adopted=True))
        for call in range(3):
            log.end(answers[call], base + 60_000 + 4_000 * call + log.random.randrange(900))
        for call in range(3):
            log.end(begun[call], base + 90_000 + 4_000 * call)
        log.end(serve, base + 120_000)


def killed(log):
    old = log.process("killed.log", 70)
    new = log.process("killed.log", 71)
    log.message(old, 0, "Opening MetricsMonitor for context 1")
    serve = log.begin(old, 1, "serve", None, 1_000)
    step = log.begin(old, 1, "step", serve, 2_000)
    done = log.begin(old, 1, "done", step, 2_500)
    log.end(done, 3_700)
    log.message(new, 5_000_000, "Opening MetricsMonitor for context 1")
    again = log.begin(new, 1, "serve", None, 5_001_000)
    step = log.begin(new, 1, "step", again, 5_001_100)
    log.end(step, 5_009_900)
    log.end(again, 5_010_000)
    log.begin(new, 2, "running", None, 5_020_000)
    log.message(new, 6_000_000, "something else")


def overlapping(log):
    process = log.process("overlapping.log", 80)
    for number in range(30):
        base = number * 100_000
        serve = log.begin(process, 1, "serve", None, base)
        run = log.begin(process, 2, "run", serve, base + 1_500)
        part = log.begin(process, 2, "part", run, base + 2_000)
        own = log.begin(process, 1, "own", serve, base + 3_100)
        late = log.begin(process, 3, "late", run, base + 4_000)
        log.end(part, base + 9_999)
        log.end(own, base + 12_345)
        log.end(run, base + 20_000 + number)
        log.end(serve, base + 33_333)
        log.end(late, base + 50_001)


def hosts(log):
    front = log.process("vega.log", 50, host="vega")
    beside = log.process("vega.log", 51, host="vega")
    back = log.process("altair.log", 50, 2_000_000, host="altair")
    child = log.process("altair.log", 51, 2_000_000, host="altair")
    for number in range(20):
        base = number * 60_000
        serve = log.begin(front, 1, "serve", None, base)
        own = log.begin(back, 1, "own", None, base + 1_000)
        part = log.begin(back, 1, "part", own, base + 1_500)
        call = log.begin(front, 1, "call", serve, base + 3_000)
        log.end(part, base + 4_321)
        log.end(own, base + 4_999 + log.random.randrange(900))
        answer = log.begin(back, 1, "answer", call, base + 6_000, adopted=True)
        read = log.begin(back, 1, "read", answer, base + 6_100)
        log.end(read, base + 20_000 + log.random.randrange(5_000),
                "exception" if number % 7 == 3 else "ok")
        log.end(answer, base + 26_000)
        log.end(call, base + 27_000)
        log.end(serve, base + 30_000 + log.random.randrange(900))
    job = log.begin(back, 2, "job", None, 2_000_000)
    other = log.begin(beside, 2, "job", None, 2_000_500)
    step = log.begin(back, 2, "step", job, 2_001_234)
    log.end(step, 2_004_321)
    log.end(job, 2_012_345, process=child)
    log.end(other, 2_015_000)
    log.end(job, 2_023_456)


def clock_set(log):
    process = log.process("set.log", 90)
    time = 0
    for number in range(20):
        serve = log.begin(process, 1, "serve", None, time)
        step = log.begin(process, 1, "step", serve, time + 500)
        if number % 5 == 2:
            process.skew += 3_600_000_000 if number % 2 else -1_800_000_000
        log.end(step, time + 4_600)
        log.end(serve, time + 7_700)
        time += 10_000


KINDS = {"short": short, "near": near, "far": far, "fork": fork, "hosts": hosts,
         "parallel": parallel, "killed": killed, "overlapping": overlapping, "set": clock_set}


def make(kind):
    log = Log(kind)
    KINDS[kind](log)
    return log.texts()
