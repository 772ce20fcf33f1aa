#!/usr/bin/python3
"""Tests what is heard during calls with kova-audiod, on a real PulseAudio and a real PipeWire of the test's own.

usage: sound_test.py BUILD_FOLDER [UNITTEST_ARGUMENT...], on a private session bus.
"""

import array
import contextlib
import math
import os
import select
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import wave

import dbus

BUILD = sys.argv.pop(1)
RATE = 16000
BLOCK = RATE // 10  # frames in which the ear listens
LIMIT = 20  # s, for expected events, even on a busy machine
ANSWER = 2  # s, the contract's limit for an answer

FAR_END, USER = 440, 1000  # Hz
STAY = "--property=node.dont-reconnect=true"  # PipeWire moves a stream from an old default device to the new one
MODEM = ["--modem-source", "modem_rx.monitor", "--modem-sink", "modem_tx"]
SINKS = ["speaker", "headset", "mic", "modem_rx", "modem_tx"]

PREFIX = "com.quillmark.kova."


def await_condition(condition, what, limit=LIMIT):
    end = time.monotonic() + limit
    while not condition():
        if time.monotonic() > end:
            raise AssertionError("waited in vain for " + what)
        time.sleep(0.02)


class Ear:
    """Listens to a source and recognises a tone."""

    def __init__(self, source):
        self.process = subprocess.Popen(
            ["parec", "--raw", "--device=" + source, f"--rate={RATE}", "--channels=1", "--format=s16le",
             "--latency-msec=50", STAY], stdout=subprocess.PIPE)

    def block(self):
        data = b""
        end = time.monotonic() + LIMIT
        while len(data) < BLOCK * 2:
            if not select.select([self.process.stdout], [], [], max(0, end - time.monotonic()))[0]:
                raise AssertionError("nothing at all comes from the sound server")
            part = os.read(self.process.stdout.fileno(), BLOCK * 2 - len(data))
            if not part:
                raise AssertionError("the sound server ended the recording")
            data += part
        return array.array("h", data)

    def await_tone(self, frequency, present=True):
        """Waits until the tone has been present or absent for three blocks in a row."""
        end = time.monotonic() + LIMIT
        in_row = 0
        while in_row < 3:
            if time.monotonic() > end:
                raise AssertionError(f"{frequency} Hz {'not heard' if present else 'still heard'}")
            in_row = in_row + 1 if has_tone(self.block(), frequency) == present else 0


def has_tone(samples, frequency, rate=RATE):
    """Whether most of the energy is at the frequency (Goertzel's algorithm), well above the noise."""
    coefficient = 2 * math.cos(2 * math.pi * frequency / rate)
    before, last, energy = 0.0, 0.0, 1.0
    for sample in samples:
        before, last = last, sample + coefficient * last - before
        energy += sample * sample
    power = before * before + last * last - coefficient * before * last
    return energy / len(samples) > 100 and power / (energy * len(samples) / 2) > 0.5


class Machine:
    """A runtime folder with a sound server and the daemon. close() ends all processes."""

    def __init__(self, start_server):
        self.folder = tempfile.TemporaryDirectory()
        os.environ.update(XDG_RUNTIME_DIR=self.folder.name, HOME=self.folder.name, KOVA_LOG_LEVEL="4",
                          PULSE_SERVER=f"unix:{self.folder.name}/pulse/native")
        self.start_server = start_server
        self.running = []
        self.server = []
        self.log = tempfile.TemporaryFile("a+", encoding="utf-8")

    def run(self, *command, **options):
        process = subprocess.Popen(command, **options)
        self.running.append(process)
        return process

    def kill(self, process, how=signal.SIGKILL):
        process.send_signal(how)
        return process.wait(LIMIT)

    def pactl(self, *command):
        return subprocess.run(["pactl", *command], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)

    def start_sound(self):
        noise = open(self.folder.name + "/server.log", "ab")
        for command, probe in self.start_server:
            self.server.append(self.run(*command, stdout=noise, stderr=noise))
            await_condition(lambda probe=probe: subprocess.run(probe, stdout=noise, stderr=noise).returncode == 0,
                            command[0])
        for sink in SINKS:
            self.pactl("load-module", "module-null-sink", "sink_name=" + sink)
        self.make_default("sink", "speaker")
        self.make_default("source", "mic.monitor")

    def make_default(self, kind, name):
        """In PipeWire, it takes a while until a new device can be the default."""
        def done():
            self.pactl(f"set-default-{kind}", name)
            return self.pactl(f"get-default-{kind}").stdout.strip() == name
        await_condition(done, f"{name} as the default {kind}")

    def end_sound(self):
        for process in self.server:
            self.kill(process)
        self.server = []

    def start_daemon(self, *options):
        self.daemon = self.run(BUILD + "/kova-audiod", *options, stderr=self.log)
        bus = dbus.SessionBus()
        await_condition(lambda: bus.name_has_owner(PREFIX + "soundmanager"), "the daemon on the bus")

    def ask(self, service, method, *arguments):
        """@return the answer, within the contract's time."""
        names = {"sound": ("soundmanager", "soundobj", "soundinterface"),
                 "out": ("audiooutctlmanager", "audiooutctlobj", "audiooutctlinterface"),
                 "in": ("audioinctlmanager", "audioinctlobj", "audioinctlinterface")}
        name, path, interface = names[service]
        remote = dbus.SessionBus().get_object(PREFIX + name, f"/com/quillmark/kova/{name}/{path}", introspect=False)
        return getattr(remote, method)(*arguments, dbus_interface=PREFIX + interface, timeout=ANSWER)

    def tone(self, sink, frequency):
        """Plays a tone until close()."""
        samples = array.array("h", (int(8000 * math.sin(2 * math.pi * frequency * i / RATE)) for i in range(RATE)))
        player = self.run("pacat", "--raw", "--playback", "--device=" + sink, f"--rate={RATE}", "--channels=1",
                          "--format=s16le", STAY, stdin=subprocess.PIPE, stderr=subprocess.DEVNULL)
        second = samples.tobytes()
        feeder = os.fork()
        if feeder == 0:
            with contextlib.suppress(OSError):
                while True:
                    os.write(player.stdin.fileno(), second)
            os._exit(0)
        player.stdin.close()

    def listen(self, source):
        ear = Ear(source)
        self.running.append(ear.process)
        return ear

    def speak(self):
        """Lets the far end and the user speak from now on. @return the ears at speaker and modem."""
        self.tone("modem_rx", FAR_END)
        self.tone("mic", USER)
        return self.listen("speaker.monitor"), self.listen("modem_tx.monitor")

    def history(self):
        """@return the daemon's log."""
        self.log.seek(0)
        return self.log.read()

    def close(self):
        for process in reversed(self.running):
            if process.poll() is None:
                self.kill(process)
        self.folder.cleanup()


# The programs of each server, and a command for each that succeeds when it is ready.
PULSEAUDIO = [(["pulseaudio", "-n", "--daemonize=no", "--exit-idle-time=-1", "--use-pid-file=no",
                "--load=module-native-protocol-unix"], ["pactl", "info"])]
PIPEWIRE = [(["pipewire"], ["pw-cli", "info", "0"]), (["wireplumber"], ["true"]),
            (["pipewire-pulse"], ["pactl", "info"])]


class SoundTest:
    """The tests for each sound server."""

    def setUp(self):
        self.machine = Machine(self.SERVER)
        self.addCleanup(self.machine.close)
        self.machine.start_sound()

    def run(self, result=None):
        super().run(result)
        if not result.wasSuccessful():
            print(self.machine.history(), file=sys.stderr)

    def start_call(self):
        self.assertEqual(self.machine.ask("sound", "PlayGsmVoice"), 0)

    def test_call_is_heard_both_ways(self):
        self.machine.start_daemon(*MODEM)
        speaker, modem = self.machine.speak()
        speaker.await_tone(FAR_END, False)
        self.start_call()
        speaker.await_tone(FAR_END)
        modem.await_tone(USER)

        # A headset is plugged in and removed again.
        headset = self.machine.listen("headset.monitor")
        self.machine.make_default("sink", "headset")
        headset.await_tone(FAR_END)
        speaker.await_tone(FAR_END, False)
        modem.await_tone(USER)
        # The far end never hears itself, even if the modem is the default device.
        self.machine.make_default("sink", "modem_tx")
        speaker.await_tone(FAR_END)
        self.machine.make_default("sink", "speaker")
        speaker.await_tone(FAR_END)

        self.assertEqual(self.machine.ask("sound", "StopPlay", "gsmvoice", ""), 0)
        speaker.await_tone(FAR_END, False)
        modem.await_tone(USER, False)

    def test_restarts_in_a_call(self):
        machine = self.machine
        machine.start_daemon(*MODEM)
        self.start_call()
        machine.end_sound()
        machine.start_sound()
        speaker, modem = machine.speak()
        speaker.await_tone(FAR_END)
        modem.await_tone(USER)

        machine.kill(machine.daemon)
        speaker.await_tone(FAR_END)
        machine.start_daemon(*MODEM)
        speaker.await_tone(FAR_END, False)
        modem.await_tone(USER, False)

        self.start_call()
        speaker.await_tone(FAR_END)
        self.assertEqual(machine.kill(machine.daemon, signal.SIGTERM), 0)
        speaker.await_tone(FAR_END, False)

    def test_default_devices(self):
        machine = self.machine
        machine.start_daemon(*MODEM)
        self.assertEqual(machine.ask("out", "SetPcmVolume", dbus.UInt32(25)), 0)
        self.assertIn(" 25%", machine.pactl("get-sink-volume", "speaker").stdout)
        self.assertEqual(machine.ask("out", "SetLineMute", True), 0)
        self.assertIn("yes", machine.pactl("get-sink-mute", "speaker").stdout)
        self.assertEqual(machine.ask("in", "SetVol", 0.25), 0)
        self.assertIn(" 25%", machine.pactl("get-source-volume", "mic.monitor").stdout)
        machine.pactl("set-source-volume", "mic.monitor", "75%")
        machine.pactl("set-source-mute", "mic.monitor", "1")
        self.assertAlmostEqual(machine.ask("in", "GetVol")[1], 0.75, places=3)
        self.assertEqual(machine.ask("in", "GetMute"), (0, True))
        self.assertEqual(machine.ask("in", "SetMute", False), 0)

        machine.tone("mic", USER)
        path = machine.folder.name + "/capture.wav"
        self.assertNotEqual(machine.ask("in", "CaptureStart", "capture.wav"), 0)
        self.assertNotEqual(machine.ask("in", "CaptureStart", machine.folder.name), 0)
        self.assertEqual(machine.ask("in", "CaptureStart", path), 0)
        self.assertNotEqual(machine.ask("in", "CaptureStart", path + "2"), 0)
        self.assertEqual(machine.ask("in", "GetCaptureEnabled"), (0, True))
        await_condition(lambda: recorded_tone(path), "the tone in the recording")
        self.assertEqual(machine.ask("in", "CaptureStop"), 0)
        self.assertEqual(machine.ask("in", "GetCaptureEnabled"), (0, False))


def recorded_tone(path):
    with contextlib.suppress(EOFError, wave.Error):
        with wave.open(path) as file:
            count = file.getframerate() // 10
            if file.getnframes() < count:
                return False
            file.setpos(file.getnframes() - count)
            return has_tone(array.array("h", file.readframes(count)), USER, file.getframerate())
    return False


class ContractTest(unittest.TestCase):
    """The tests without a sound server."""

    def setUp(self):
        self.machine = Machine([])
        self.addCleanup(self.machine.close)

    def kept(self):
        return [self.machine.ask(service, "Get" + what) for service, what in (
            ("sound", "AmplifiersDefault"), ("out", "OutputType"), ("out", "OutputMask"), ("out", "InputOutputRouting"),
            ("in", "InputSource"), ("in", "Mute"), ("in", "Vol"), ("in", "CaptureEnabled"))]

    def test_values_are_kept(self):
        machine = self.machine
        machine.start_daemon(*MODEM)
        self.assertEqual(self.kept(), [(0, 1), (0, 1), (0, 1), (0, 0), (0, 1), (0, False), (0, 0.5), (0, False)])
        for request in (("sound", "SetAmplifiersDefault", dbus.Byte(2)), ("out", "SetOutputType", dbus.UInt32(2)),
                        ("out", "SetOutputMask", dbus.Byte(255)), ("out", "SetInputOutputRouting", dbus.Byte(4)),
                        ("in", "SetInputSource", 3), ("in", "SetMute", True), ("in", "SetVol", 1.0),
                        ("out", "SetPcmVolume", dbus.UInt32(100)), ("out", "SetLineMute", True), ("in", "CaptureStop"),
                        ("out", "ApplyOutputType"), ("sound", "PlayGsmVoice"), ("sound", "StopPlay", "gsmvoice", "")):
            self.assertEqual(machine.ask(*request), 0, request)
        for request in (("in", "SetVol", 1.01), ("in", "SetVol", -0.01), ("in", "SetVol", math.nan),
                        ("out", "SetPcmVolume", dbus.UInt32(101)),
                        ("in", "CaptureStart", machine.folder.name + "/capture.wav")):
            self.assertNotEqual(machine.ask(*request), 0, request)
        self.assertEqual(self.kept(), [(0, 2), (0, 2), (0, 255), (0, 4), (0, 3), (0, True), (0, 1.0), (0, False)])
        self.assertIn("L1 ", machine.history())

        self.assertEqual(machine.run(BUILD + "/kova-audiod", stderr=machine.log).wait(LIMIT), 1, "two daemons")
        self.assertEqual(machine.run(BUILD + "/kova-audiod", *MODEM[:2], stderr=machine.log).wait(LIMIT), 2, "usage")
        self.assertEqual(machine.kill(machine.daemon, signal.SIGTERM), 0)

    def test_server_that_only_accepts(self):
        """At the same time, a client sends requests faster than they can be answered."""
        machine = self.machine
        os.mkdir(machine.folder.name + "/pulse")
        with socket.socket(socket.AF_UNIX) as server:
            server.bind(machine.folder.name + "/pulse/native")
            server.listen(100)
            machine.start_daemon(*MODEM)
            bus = dbus.SessionBus()
            for i in range(3000):
                bus.call_async(PREFIX + "soundmanager", "/com/quillmark/kova/soundmanager/soundobj",
                               PREFIX + "soundinterface", "PlayGsmVoice", "", (), None, None)
            for request in (("sound", "PlayGsmVoice"), ("out", "SetLineMute", True),
                            ("sound", "StopPlay", "gsmvoice", "")):
                self.assertEqual(machine.ask(*request), 0, request)
            self.assertNotEqual(machine.ask("in", "CaptureStart", machine.folder.name + "/capture.wav"), 0)
            self.assertIn("no answer in time", machine.history())

    def test_callaudiod_carries_the_call(self):
        machine = self.machine
        name = "org.mobian_project.CallAudio"
        bus = dbus.SessionBus()

        def start_callaudiod():
            path = "/" + name.replace(".", "/")
            double = machine.run("/usr/bin/python3", "-m", "dbusmock", name, path, name, stdout=record)
            await_condition(lambda: bus.name_has_owner(name), "callaudiod's double")
            mock = bus.get_object(name, path, introspect=False)
            for method, argument in (("SelectMode", "u"), ("EnableSpeaker", "b")):
                mock.AddMethod(name, method, argument, "b", "ret = True", dbus_interface="org.freedesktop.DBus.Mock")
            return double

        def await_record(*calls):
            def recorded():
                with open(record.name, encoding="utf-8") as file:
                    lines = [line.split(" ", 1)[1].strip() for line in file]
                return [line for line in lines if line.startswith(("SelectMode", "EnableSpeaker"))] == list(calls)
            await_condition(recorded, f"{calls} at callaudiod")
            record.truncate(0)

        with tempfile.NamedTemporaryFile("ab") as record:
            double = start_callaudiod()
            machine.start_daemon()
            await_record("SelectMode 0")  # may be left by an earlier process
            for order in (0, 1):
                requests = [("out", "SetOutputType", dbus.UInt32(2)), ("sound", "PlayGsmVoice")]
                for request in reversed(requests) if order else requests:
                    self.assertEqual(machine.ask(*request), 0)
                if order:
                    await_record("SelectMode 1", "EnableSpeaker False", "SelectMode 1", "EnableSpeaker True")
                else:
                    await_record("SelectMode 1", "EnableSpeaker True")
                self.assertEqual(machine.ask("sound", "StopPlay", "gsmvoice", ""), 0)
                await_record("SelectMode 0")
                self.assertEqual(machine.ask("out", "SetOutputType", dbus.UInt32(1)), 0)

            self.assertEqual(machine.ask("sound", "PlayGsmVoice"), 0)
            await_record("SelectMode 1", "EnableSpeaker False")
            machine.kill(double)
            start_callaudiod()
            await_record("SelectMode 1", "EnableSpeaker False")


class PulseAudioTest(SoundTest, unittest.TestCase):
    SERVER = PULSEAUDIO

    def test_server_that_does_not_answer(self):
        machine = self.machine
        machine.start_daemon(*MODEM)
        machine.server[0].send_signal(signal.SIGSTOP)
        for request in (("sound", "PlayGsmVoice"), ("out", "SetPcmVolume", dbus.UInt32(30)), ("in", "SetMute", True)):
            self.assertEqual(machine.ask(*request), 0, request)
        self.assertEqual(machine.ask("in", "GetMute"), (0, True))
        self.assertNotEqual(machine.ask("in", "CaptureStart", machine.folder.name + "/capture.wav"), 0)
        self.assertIn("no answer in time", machine.history())
        machine.server[0].send_signal(signal.SIGCONT)
        speaker, _ = machine.speak()
        speaker.await_tone(FAR_END)
        await_condition(lambda: " 30%" in machine.pactl("get-sink-volume", "speaker").stdout, "the volume")

    def test_callaudiod_that_refuses(self):
        """With null sinks, callaudiod has no voice call mode."""
        machine = self.machine
        machine.run("callaudiod", stderr=subprocess.DEVNULL)
        bus = dbus.SessionBus()
        await_condition(lambda: bus.name_has_owner("org.mobian_project.CallAudio"), "callaudiod")
        machine.start_daemon()
        self.start_call()
        self.assertIn("callaudiod refused", machine.history())
        self.assertEqual(machine.ask("out", "SetOutputType", dbus.UInt32(2)), 0)
        self.assertEqual(machine.ask("sound", "StopPlay", "gsmvoice", ""), 0)


class PipeWireTest(SoundTest, unittest.TestCase):
    SERVER = PIPEWIRE


if __name__ == "__main__":
    unittest.main(verbosity=2, warnings="ignore")
