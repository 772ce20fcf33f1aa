#!/usr/bin/env python3
"""Measures the service and minimal programs in turn, on the session bus in the environment.

usage: run.py BUILD_FOLDER [--quick]. Prints a table and writes results.json and results.svg to BUILD_FOLDER/bench.
"""

import contextlib
import datetime
import itertools
import json
import os
import re
import signal
import statistics
import subprocess
import sys
import tempfile
import time

BUILD = os.path.abspath(sys.argv[1])
QUICK = "--quick" in sys.argv
OUT = os.path.join(BUILD, "bench")
CLIENT = os.path.join(OUT, "bench_client")
WORK = tempfile.TemporaryDirectory()

ROUNDS = 5 if QUICK else 21
CALLS = 200 if QUICK else 500  # in each round
IDLE_S = 10 if QUICK else 60
SMS_BATCHES, SMS_BATCH = (4, 2500) if QUICK else (10, 10000)
LOG_LINES = 100000 if QUICK else 1000000
PENDING_RUNS = (100, 10000) if QUICK else (100, 10000, 100000)
BURST, SEND_MS = 30, 500  # messages before an emergency request, and the time to send one
COUNTED = 200, 1200  # calls in the two runs whose instructions are subtracted

PHONE = ("com.quillmark.kova.phonemanager", "/com/quillmark/kova/phonemanager/phoneobj",
         "com.quillmark.kova.phoneinterface")
GSM_OBJECT = "/com/quillmark/kova/gsmmanager/gsmobj"

# label: program; its name, path and interface on the bus; path of the GSM daemon that it listens to
PROGRAMS = {
    "sd-bus": (OUT + "/minimal_sd", ("bench.Sd", "/bench/sd", "bench.Minimal"), "/bench/sd"),
    "QtDBus": (OUT + "/minimal_qt", ("bench.Qt", "/bench/qt", "bench.Minimal"), "/bench/qt"),
    "service": (BUILD + "/phonemanager", PHONE, GSM_OBJECT),
}
FLOOR = "QtDBus"

ENVIRONMENT = dict(os.environ, KOVA_CONFIG_FILE=WORK.name + "/config.ini", KOVA_CONTACTS_DB=WORK.name + "/contacts.db")
ENVIRONMENT.pop("KOVA_LOG_LEVEL", None)


def client(*arguments):
    text = subprocess.run([CLIENT, *map(str, arguments)], check=True, stdout=subprocess.PIPE, env=ENVIRONMENT).stdout
    return [[int(number) for number in line.split()] for line in text.splitlines()]


def settings(enabled):
    with open(ENVIRONMENT["KOVA_CONFIG_FILE"], "w", encoding="ascii") as file:
        file.write(f"[PHONE]\nenabled={enabled}\n\n[DEVICES_SETUP]\ngprs-enabled=0\n")


class Running:
    """Runs a program for the duration of a with statement."""

    def __init__(self, label, command=None, name=None):
        program, bus, _ = PROGRAMS.get(label, (None, (name,), None))
        self.command = command or [program]
        self.name = bus[0]

    def __enter__(self):
        self.log = open(WORK.name + "/log", "ab")
        self.process = subprocess.Popen(self.command, stderr=self.log, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                                        env=ENVIRONMENT)
        await_condition(lambda: on_bus(self.name), self.name + " on the bus")
        return self.process.pid

    def __exit__(self, *_):
        self.process.terminate()
        if self.process.wait(60) not in (0, -signal.SIGTERM):
            sys.exit(f"{self.command[0]} failed with {self.process.returncode}")
        self.log.close()


def await_condition(condition, what, limit=120):
    end = time.monotonic() + limit
    while not condition():
        if time.monotonic() > end:
            sys.exit("timeout while waiting for: " + what)
        time.sleep(0.05)


def dbus_send(name, path, method, *arguments):
    reply = subprocess.run(["dbus-send", "--session", "--print-reply=literal", "--dest=" + name, path, method,
                            *arguments], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout
    return " ".join(reply.split())


def on_bus(name):
    return "true" in dbus_send("org.freedesktop.DBus", "/", "org.freedesktop.DBus.NameHasOwner", "string:" + name)


def spread(samples):
    """Median and quartiles."""
    if len(samples) < 2:
        return {"median": samples[0], "low": samples[0], "high": samples[0]}
    low, median, high = statistics.quantiles(samples, n=4, method="inclusive")
    return {"median": median, "low": low, "high": high}


def figure(unit, rounds, parts=None):
    """rounds: label -> one value for each round. Ratios are taken in each round, so that a busy moment affects both sides."""
    result = {"unit": unit, "values": {label: spread(samples) for label, samples in rounds.items()}}
    ratios = [a / b for a, b in zip(rounds["service"], rounds.get(FLOOR, [])) if b]
    if ratios:
        result["ratio"] = spread(ratios)
    if parts:
        result["parts"] = {label: spread(samples) for label, samples in parts.items()}
    return result


def interleaved(measures):
    """measures: label -> function that measures once. @return label -> one value for each round"""
    rounds = {label: [] for label in measures}
    for _ in range(ROUNDS):
        for label, measure in measures.items():
            rounds[label].append(measure())
    return rounds


def start_up():
    def once(program, name):
        return client("start", name, program)[0]
    rounds = interleaved({label: (lambda program=program, bus=bus: once(program, bus[0]))
                          for label, (program, bus, _) in PROGRAMS.items()})
    return figure("ms", {label: [named / 1e6 for _, named in samples] for label, samples in rounds.items()},
                  parts={label + ", to the first line": [first / 1e6 for first, _ in samples]
                         for label, samples in rounds.items()})


def dynamic_linking():
    """The dynamic linker's own statistics of its time."""
    result = {}
    for label, (program, bus, _) in PROGRAMS.items():
        path = WORK.name + "/linking"
        with open(path, "w+", encoding="ascii") as file:
            process = subprocess.Popen([program], env=dict(ENVIRONMENT, LD_DEBUG="statistics"), stderr=file)
            await_condition(lambda: on_bus(bus[0]), bus[0])
            process.kill()
            process.wait()
            file.seek(0)
            text = file.read()
        result[label] = {key: int(re.search(pattern, text)[1]) for key, pattern in {
            "cycles": r"total startup time in dynamic loader: (\d+)",
            "relocation cycles": r"time needed for relocation: (\d+)",
            "relocations": r"number of relocations: (\d+)",
            "relative relocations": r"number of relative relocations: (\d+)"}.items()}
    return result


def memory(pid, key):
    with open(f"/proc/{pid}/smaps_rollup", encoding="ascii") as file:
        kib = dict(re.findall(r"(\w+):\s+(\d+) kB", file.read()))
    return (int(kib["Pss"]) if key == "Pss" else int(kib["Private_Clean"]) + int(kib["Private_Dirty"])) / 1024


def wakeups(pid):
    total = 0
    for task in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{task}/status", encoding="ascii") as file:
            total += int(re.search(r"^voluntary_ctxt_switches:\s+(\d+)", file.read(), re.M)[1])
    return total


def idle_wakeups(pids):
    """@return label -> wake-ups per minute"""
    before = {label: wakeups(pid) for label, pid in pids.items()}
    time.sleep(IDLE_S)
    return {label: [(wakeups(pid) - before[label]) * 60 / IDLE_S] for label, pid in pids.items()}


def round_trips(figures, pids):
    def median(target, _):
        return statistics.median(sample[0] for sample in client("call", CALLS, *target)) / 1000

    def rate(target, _):
        return 1e9 / client("flood", CALLS, *target)[0][0]

    def cpu(target, pid):
        before = cpu_ns(pid)
        client("call", CALLS, *target)
        return (cpu_ns(pid) - before) / CALLS / 1000
    programs = {label: (*bus, "GetStatus") for label, (_, bus, _) in PROGRAMS.items()}
    ping = {"bus daemon": ("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.Peer", "Ping")}
    for name, unit, measure, targets in (("GetStatus round trip", "us", median, programs | ping),
                                         ("GetStatus throughput", "1/s", rate, programs | ping),
                                         ("CPU time of GetStatus", "us", cpu, programs)):
        figures[name] = figure(unit, interleaved({
            label: (lambda target=target, pid=pids.get(label): measure(target, pid))
            for label, target in targets.items()}))


def relayed_signal(label):
    _, (_, path, interface), daemon = PROGRAMS[label]
    return daemon, path, interface, "SmsReceived"


def relay():
    def median(*target):
        return statistics.median(sample[0] for sample in client("relay", CALLS, *target)) / 1000
    direct = ("/bench/direct", "/bench/direct", "com.quillmark.kova.gsminterface", "MessageReceived")
    targets = {"direct": direct, **{label: relayed_signal(label) for label in PROGRAMS}}
    return figure("us", interleaved({label: (lambda target=target: median(*target))
                                     for label, target in targets.items()}))


def simulator_command(line):
    return dbus_send("com.quillmark.kova.simulator", "/com/quillmark/kova/simulator",
                 "com.quillmark.kova.simulator.Command", "string:" + line)


def get_status():
    return dbus_send(PHONE[0], PHONE[1], PHONE[2] + ".GetStatus")


def cpu_ns(pid):
    total = 0
    for task in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{task}/schedstat", encoding="ascii") as file:
            total += int(file.read().split()[0])
    return total


def sms_queue(pid):
    """Queues messages while the modem is not registered: the run of each message leaves it in the queue."""
    simulator_command("network lost")
    await_condition(lambda: get_status().startswith("int32 0 uint32 1"), "a modem that is not registered")
    private, wall, cpu = memory(pid, "Private"), [], []
    for _ in range(SMS_BATCHES):
        before = cpu_ns(pid)
        wall.append(client("flood", SMS_BATCH, *PHONE, "QueueSms", "+491234567890", "A short message.")[0][0] / 1000)
        cpu.append((cpu_ns(pid) - before) / SMS_BATCH / 1000)
    time.sleep(2)  # the last runs
    grown = memory(pid, "Private") - private
    half = SMS_BATCHES // 2
    return {"messages": SMS_BATCHES * SMS_BATCH, "wall us each, by batch": wall, "CPU us each, by batch": cpu,
            "last half to first half": statistics.median(cpu[half:]) / statistics.median(cpu[:half]),
            "bytes each": grown * 2**20 / (SMS_BATCHES * SMS_BATCH)}


def log_lines(text):
    with open(WORK.name + "/log", "rb") as file:
        return file.read().count(text)


def queue_runs(pid):
    """CPU time of a run of the queue, by the number of runs that are due at once. They accumulate while a power-off blocks
    the service. The modem is off, so each run leaves its message in the queue."""
    each, run_line = {}, b"Process sms queue"
    for count in PENDING_RUNS:
        simulator_command("fault ModemSetEnabled delay 5000 times 1")
        subprocess.run(["dbus-send", "--session", "--dest=" + PHONE[0], PHONE[1], PHONE[2] + ".ForcePhoneOff",
                        "boolean:true"], check=True)
        before = log_lines(run_line)
        client("send", count, *PHONE, "QueueSms", "+491234567890", "A short message.")
        get_status()  # its answer follows those of all messages
        done, cpu = log_lines(run_line) - before, cpu_ns(pid)
        await_condition(lambda: log_lines(run_line) - before >= count, "the queue's runs")
        each[count] = (cpu_ns(pid) - cpu) / (count - done) / 1000
        dbus_send(*PHONE[:2], PHONE[2] + ".ForcePhoneOff", "boolean:false")
        await_condition(lambda: "uint32 2 uint32 3" in get_status(), "registered modem")
    return {"CPU us of a run, by runs due": each}


def emergency_in_burst():
    """The delay of an emergency loop that is requested during a burst of messages."""
    simulator_command(f"fault SendSms delay {SEND_MS}")
    sends = log_lines(b"SendSms() request")
    client("send", BURST, *PHONE, "QueueSms", "+491234567890", "A short message.")
    await_condition(lambda: log_lines(b"SendSms() request") > sends, "the first message")
    begin = time.monotonic()
    dbus_send(*PHONE[:2], PHONE[2] + ".VoiceCallLoopMake", "array:string:112")
    accepted = time.monotonic() - begin
    await_condition(lambda: log_lines(b"Gsmd->Call(112) request"), "the call")
    dialled = time.monotonic() - begin
    simulator_command("fault SendSms clear")
    return {"messages": BURST, "each takes s": SEND_MS / 1000, "accepted after s": accepted, "dialled after s": dialled}


def instructions(label, count, *mode):
    out = f"{WORK.name}/callgrind"
    program = PROGRAMS[label][0]
    with Running(label, ["valgrind", "-q", "--tool=callgrind", "--callgrind-out-file=" + out, program]):
        client(mode[0], count, *mode[1:])
    with open(out, encoding="utf-8", errors="replace") as file:
        return int(re.search(r"^(?:summary|totals): (\d+)", file.read(), re.M)[1])


def instruction_counts(figures):
    for name, mode in (("Instructions per GetStatus", lambda label: ("call", *PROGRAMS[label][1], "GetStatus")),
                       ("Instructions per relayed signal", lambda label: ("relay", *relayed_signal(label)))):
        each, rest = {}, {}
        for label in PROGRAMS:
            few, many = (instructions(label, count, *mode(label)) for count in COUNTED)
            each[label] = [(many - few) / (COUNTED[1] - COUNTED[0])]
            rest[label] = [(few - COUNTED[0] * each[label][0]) / 1e6]
        figures[name] = figure("", each)
        if mode(FLOOR)[0] == "call":
            figures["Instructions of start and stop"] = figure("million", rest)


def measure():
    figures, details = {}, {}
    settings(0)
    print("start-up ...", file=sys.stderr)
    figures["Start-up"] = start_up()
    details["dynamic linking"] = dynamic_linking()

    with Running("sd-bus") as sd, Running("QtDBus") as qt, Running("service") as service:
        pids = {"sd-bus": sd, "QtDBus": qt, "service": service}
        print("memory, idle ...", file=sys.stderr)
        for name, key in (("Memory at rest, private", "Private"), ("Memory at rest, PSS", "Pss")):
            figures[name] = figure("MiB", {label: [memory(pid, key)] for label, pid in pids.items()})
        figures["Wake-ups per minute, modem off"] = figure("", idle_wakeups(pids))
        print("round trips, relay ...", file=sys.stderr)
        round_trips(figures, pids)
        figures["Relayed signal"] = relay()

    settings(1)
    simulator = [BUILD + "/kova-simulator", "--quiet", "--power-up", "0", "--register", "0", "--power-down", "0",
                 "--signal-interval", "99999999"]
    with Running("simulator", simulator, "com.quillmark.kova.simulator"), Running("service") as pid:
        print("registered modem: idle, SMS queue ...", file=sys.stderr)
        await_condition(lambda: "uint32 2 uint32 3" in get_status(), "registered modem")
        figures["Wake-ups per minute, modem registered"] = figure("", idle_wakeups({"service": pid}))
        details["SMS queue"] = sms_queue(pid)

    with Running("simulator", simulator, "com.quillmark.kova.simulator"), Running("service") as pid:
        print("runs of the queue, emergency call in a burst ...", file=sys.stderr)
        await_condition(lambda: "uint32 2 uint32 3" in get_status(), "registered modem")
        details["emergency call in a burst of messages"] = emergency_in_burst()
        simulator_command("hangup")
        await_condition(lambda: log_lines(b"EMERGENCY GSM CALL SUCCESFULLY STOPPED"), "the end of the call")
        details["runs of the queue"] = queue_runs(pid)

    print("daemons for stock boards ...", file=sys.stderr)
    details.update(stock_daemons())

    print("timeline of a long log ...", file=sys.stderr)
    details["timeline"] = timeline()

    print("instructions ...", file=sys.stderr)
    settings(0)
    instruction_counts(figures)
    return {"figures": figures, "details": details}


def write_log(path, lines):
    """A log of the service: signal reports, each hundredth time a message, a call or a power cycle, a line in 0.26 s."""
    events = (("Sms id=1 QUEUED", "Sms id=1 SENT"),
              ("Gsmd->Call(+491234567890) request success", "Call succesfully started", "Gsm phone call ANSWERED",
               "Gsm phone call TERMINATED"),
              ("Signal Quality not received in 10 mins.. Power Cycle the modem", "Gsm modem OFF", "Gsm modem POWERED",
               "PHONE_STATUS_REGISTERED and SIM present"))
    messages = itertools.chain.from_iterable(
        ("Gsm signal: 71",) * 99 + events[turn % len(events)] for turn in itertools.count())
    start = datetime.datetime(2026, 11, 20)
    with open(path, "w", encoding="ascii") as file:
        for number, message in enumerate(itertools.islice(messages, lines)):
            moment = start + datetime.timedelta(seconds=0.26 * number)
            file.write(f"{moment.isoformat(timespec='milliseconds')} L2 {PHONE[1]} [PhoneManager.cpp:1] "
                       f"void PhoneManager::OnGsm(): {message}\n")


def timeline():
    """Time and peak memory of phonectl as it draws a long log."""
    log, seconds, peaks = WORK.name + "/long.log", [], []
    write_log(log, LOG_LINES)
    for _ in range(ROUNDS):
        begin = time.monotonic()
        process = subprocess.Popen([BUILD + "/phonectl", "timeline", log, "--output", WORK.name + "/long.html"],
                                   stdout=subprocess.DEVNULL)
        _, status, usage = os.wait4(process.pid, 0)
        seconds.append(time.monotonic() - begin)
        process.returncode = os.waitstatus_to_exitcode(status)
        if process.returncode != 0:
            sys.exit(f"phonectl timeline failed with {process.returncode}")
        peaks.append(usage.ru_maxrss / 1024)
    return {"lines": LOG_LINES, "seconds": spread(seconds), "peak MiB": spread(peaks)}


def stock_daemons():
    """The daemons for stock boards: memory, compared with the minimal program, and wake-ups at rest, kova-audiod with a
    PulseAudio; and the delay of a signal that kova-gsmd passes on. One bus is both session and system bus."""
    ENVIRONMENT.update(DBUS_SYSTEM_BUS_ADDRESS=ENVIRONMENT["DBUS_SESSION_BUS_ADDRESS"], XDG_RUNTIME_DIR=WORK.name)
    names = {"kova-gsmd": "com.quillmark.kova.gsmmanager", "kova-audiod": "com.quillmark.kova.soundmanager",
             "kova-suspend": "org.freedesktop.DBus"}  # has no name of its own
    sound_server = ["pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no",
                    "--load=module-native-protocol-unix", "--load=module-null-sink"]
    with contextlib.ExitStack() as stack:
        qt = stack.enter_context(Running("QtDBus"))
        stack.enter_context(Running("PulseAudio", sound_server, "org.freedesktop.DBus"))
        await_condition(lambda: os.path.exists(WORK.name + "/pulse/native"), "PulseAudio")
        pids = {label: stack.enter_context(Running(label, [f"{BUILD}/{label}"], name)) for label, name in names.items()}
        text = subprocess.run([OUT + "/gsmd_client", str(CALLS)], check=True, stdout=subprocess.PIPE,
                              env=ENVIRONMENT).stdout
        time.sleep(2)  # kova-gsmd has handled the end of the stack by then
        rest = idle_wakeups(pids)
        result = {label: {"private MiB more than QtDBus": memory(pid, "Private") - memory(qt, "Private"),
                          "wake-ups per minute": rest[label][0]} for label, pid in pids.items()}
        result["kova-gsmd"]["ms to pass on a signal"] = spread([int(line) / 1e6 for line in text.splitlines()])
        return result


def number(value):
    return f"{value:.0f}" if value >= 1000 or value == int(value) else f"{value:.3g}"


def table(figures):
    labels = ["bus daemon", "direct", *PROGRAMS]
    print(f"{'':38}" + "".join(f"{label:>13}" for label in labels) + f"{'to ' + FLOOR:>13}   quartiles")
    for name, data in figures.items():
        values = "".join(f"{number(data['values'][label]['median']) if label in data['values'] else '':>13}"
                         for label in labels)
        ratio = data.get("ratio")
        last = f"{ratio['median']:13.2f}   {ratio['low']:.2f} - {ratio['high']:.2f}" if ratio else ""
        print(f"{name + (', ' + data['unit'] if data['unit'] else ''):38}{values}{last}")


def picture(figures, path):
    """Draws each figure as a multiple of the minimal QtDBus program's."""
    rows = [(name, label, data["values"][label]["median"] / data["values"][FLOOR]["median"])
            for name, data in figures.items() if data.get("ratio")
            for label in ("bus daemon", "direct", "sd-bus", "service") if label in data["values"]]
    colours = {"bus daemon": "#999", "direct": "#999", "sd-bus": "#5b8", "service": "#47a"}
    left, unit, step = 330, 160, 18
    height = len(rows) * step + 50
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{left + 4 * unit}" height="{height}" '
             'font-family="sans-serif" font-size="12">', '<rect width="100%" height="100%" fill="#fff"/>']
    for multiple in range(4):
        x = left + multiple * unit
        lines.append(f'<line x1="{x}" x2="{x}" y1="24" y2="{height - 20}" stroke="{"#000" if multiple == 1 else "#ddd"}"/>'
                     f'<text x="{x}" y="18" text-anchor="middle">{multiple}</text>')
    for index, (name, label, ratio) in enumerate(rows):
        y = 30 + index * step
        first = index == 0 or rows[index - 1][0] != name
        lines.append((f'<text x="4" y="{y + 11}">{name}</text>' if first else "") +
                     f'<text x="{left - 6}" y="{y + 11}" text-anchor="end">{label}</text>'
                     f'<rect x="{left}" y="{y}" height="13" width="{min(ratio, 3.4) * unit:.1f}" fill="{colours[label]}"/>'
                     f'<text x="{left + min(ratio, 3.4) * unit + 4:.1f}" y="{y + 11}">{ratio:.2f}</text>')
    lines.append(f'<text x="{left}" y="{height - 6}">multiples of the minimal QtDBus program, which is 1</text></svg>')
    with open(path, "w", encoding="utf-8") as file:
        file.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    results = measure()
    table(results["figures"])
    for title, detail in results["details"].items():
        print(f"\n{title}: " + json.dumps(detail))
    with open(OUT + "/results.json", "w", encoding="utf-8") as results_file:
        json.dump(results, results_file, indent=1)
    picture(results["figures"], OUT + "/results.svg")
