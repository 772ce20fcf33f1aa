#!/usr/bin/python3
"""Listens to the calls of a whole stock device: the phone service, kova-gsmd on a real modem stack with the simulated
modem, and kova-audiod on a real sound server.

usage: on-stock.sh BUILD_FOLDER STACK call_test.py BUILD_FOLDER [UNITTEST_ARGUMENT...]
"""

import os
import subprocess
import sys
import tempfile
import unittest

import dbus

from sound_test import BUILD, FAR_END, MODEM, PIPEWIRE, PULSEAUDIO, USER, Machine, await_condition

CONTACT = "+493023125001"  # in the contacts of the session; may call in
NETWORK_LIMIT = 60  # s, until the modem is registered and its card checked
ON_MODEMMANAGER = bool(os.environ["MODEMMANAGER"])
LOG = tempfile.TemporaryFile("a+", encoding="utf-8")  # of the phone service and kova-gsmd


def start(program):
    environment = dict(os.environ)
    if ON_MODEMMANAGER:  # its test mode uses the session bus
        environment["DBUS_SYSTEM_BUS_ADDRESS"] = environment["DBUS_SESSION_BUS_ADDRESS"]
    process = subprocess.Popen([f"{BUILD}/{program}"], env=environment, stderr=LOG)
    unittest.addModuleCleanup(process.wait)
    unittest.addModuleCleanup(process.terminate)


def setUpModule():
    start("kova-gsmd")
    start("phonemanager")
    await_condition(lambda: dbus.SessionBus().name_has_owner("com.quillmark.kova.phonemanager"), "the phone service")
    phone().PhoneSetEnabled(True)


def phone():
    remote = dbus.SessionBus().get_object("com.quillmark.kova.phonemanager",
                                          "/com/quillmark/kova/phonemanager/phoneobj", introspect=False)
    return dbus.Interface(remote, "com.quillmark.kova.phoneinterface")


def device(*command):
    """@return the simulated modem's answer."""
    return subprocess.run([BUILD + "/kova-simulator", "send", *command], check=True, capture_output=True,
                          text=True).stdout


def hang_up():
    """Ends the call from here. ModemManager can miss that the far end hangs up right after it was answered."""
    remote = dbus.SessionBus().get_object("com.quillmark.kova.gsmmanager", "/com/quillmark/kova/gsmmanager/gsmobj",
                                          introspect=False)
    remote.CallHangup(dbus_interface="com.quillmark.kova.gsminterface")


def replug_modem():
    device("modem", "unplug")
    device("modem", "plug")
    if ON_MODEMMANAGER:  # does not notice with its virtual modem
        name = "org.freedesktop.ModemManager1"
        manager = dbus.SessionBus().get_object(name, "/org/freedesktop/ModemManager1", introspect=False)
        manager.SetProfile("kova", "generic", ["abstract:" + os.environ["AT_NAME"]], dbus_interface=name + ".Test")


class CallTest:
    """The tests for each sound server."""

    def setUp(self):
        self.machine = Machine(self.SERVER)
        self.addCleanup(self.machine.close)
        self.machine.start_sound()
        self.machine.start_daemon(*MODEM)
        self.ears = list(zip(self.machine.speak(), (FAR_END, USER)))
        await_condition(lambda: phone().GetStatus()[1:3] == (2, 3), "the network", NETWORK_LIMIT)

    def run(self, result=None):
        super().run(result)
        if not result.wasSuccessful():
            LOG.seek(0)
            print(LOG.read(), self.machine.history(), file=sys.stderr)

    def assert_call(self, state):
        """Checks the call's state, and that there is sound both ways if it is active, and otherwise none."""
        await_condition(lambda: f'call: "{state}"' in device("state").splitlines(), f"call {state}")
        for ear, tone in self.ears:
            ear.await_tone(tone, state == "active")

    def test_calls_are_heard(self):
        calls = (lambda: phone().VoiceCallMake("491"), lambda: device("ring", CONTACT),
                 lambda: phone().VoiceCallLoopMake(["492", "493"]))
        device("number", "492", "reject")
        for call, end in zip(calls, (lambda: device("hangup"), hang_up, replug_modem)):
            call()
            self.assert_call("active")
            end()
            self.assert_call("none")


class PulseAudioTest(CallTest, unittest.TestCase):
    SERVER = PULSEAUDIO


class PipeWireTest(CallTest, unittest.TestCase):
    SERVER = PIPEWIRE


if __name__ == "__main__":
    unittest.main(verbosity=2, warnings="ignore")
