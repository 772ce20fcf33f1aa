#!/usr/bin/python3
"""Tests what kova-suspend does to the phone around the device's sleep, with the real phone service and a double of
logind.

usage: suspend_test.py BUILD_FOLDER, on a private session bus.
"""

import os
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import dbus
import dbusmock

BUILD = sys.argv.pop(1)
LIMIT = 20  # s, for expected events, even on a busy machine
LOGIND = "org.freedesktop.login1"
MANAGER = LOGIND + ".Manager"
PHONE = "com.quillmark.kova.phonemanager"


class SuspendTest(dbusmock.DBusTestCase):
    @classmethod
    def setUpClass(cls):
        cls.start_system_bus()
        cls.folder = tempfile.TemporaryDirectory()
        with open(cls.folder.name + "/config.ini", "w", encoding="ascii") as file:
            file.write("[PHONE]\nenabled=1\n")
        os.environ.update(XDG_RUNTIME_DIR=cls.folder.name, KOVA_CONFIG_FILE=cls.folder.name + "/config.ini")
        cls.device = subprocess.Popen([BUILD + "/kova-simulator", "--quiet", "--power-up", "20", "--register", "20"],
                                      stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
        cls.service = subprocess.Popen([BUILD + "/phonemanager"], stderr=subprocess.DEVNULL)
        cls.logind, cls.manager = cls.spawn_server_template("logind", {}, stdout=subprocess.DEVNULL)
        cls.addClassCleanup(cls.end_all)

    @classmethod
    def end_all(cls):
        for process in (cls.service, cls.device, cls.logind):
            process.terminate()
            process.wait(LIMIT)
        cls.folder.cleanup()

    def setUp(self):
        bus = dbus.SessionBus()
        self.await_condition(lambda: bus.name_has_owner(PHONE), "the phone service")
        phone = bus.get_object(PHONE, "/com/quillmark/kova/phonemanager/phoneobj", introspect=False)
        self.phone = dbus.Interface(phone, "com.quillmark.kova.phoneinterface")
        self.await_condition(lambda: self.phone_status() == (2, False), "registration")
        self.start_program()

    def tearDown(self):
        self.program.terminate()
        self.assertEqual(self.program.wait(LIMIT), 0)

    def start_program(self):
        self.program = subprocess.Popen([BUILD + "/kova-suspend"])
        self.await_inhibited(True)

    @staticmethod
    def await_condition(condition, what):
        end = time.monotonic() + LIMIT
        while not condition():
            if time.monotonic() > end:
                raise AssertionError("waited in vain for " + what)
            time.sleep(0.02)

    def phone_status(self):
        """@return the modem's state, 0 for off, and whether the phone is forced off."""
        answer = self.phone.GetStatus()
        return answer[1], answer[5]

    def await_inhibited(self, inhibited):
        def is_inhibited():
            inhibitors = self.manager.ListInhibitors(dbus_interface=MANAGER)
            return [one[3] for one in inhibitors if one[0] == "sleep"] == (["delay"] if inhibited else [])
        self.await_condition(is_inhibited, "the sleep " + ("held up" if inhibited else "let through"))

    def prepare_for_sleep(self, start):
        self.manager.UpdateProperties(MANAGER, {"PreparingForSleep": start}, dbus_interface=dbusmock.MOCK_IFACE)
        self.manager.EmitSignal(MANAGER, "PrepareForSleep", "b", [start], dbus_interface=dbusmock.MOCK_IFACE)

    def test_phone_is_off_before_the_device_sleeps(self):
        self.prepare_for_sleep(True)
        self.await_inhibited(False)
        self.assertEqual(self.phone_status(), (0, True))
        # The first release is refused.
        subprocess.run([BUILD + "/kova-simulator", "send", "fault ModemSetEnabled status 1 times 1"], check=True)
        self.prepare_for_sleep(False)
        self.await_inhibited(True)
        self.await_condition(lambda: self.phone_status() == (2, False), "the phone's return")

    def test_users_own_force_stays(self):
        self.assertEqual(self.phone.ForcePhoneOff(True), 0)
        self.await_condition(lambda: self.phone_status() == (0, True), "the modem off")
        self.prepare_for_sleep(True)
        self.await_inhibited(False)
        self.prepare_for_sleep(False)
        self.await_inhibited(True)
        self.assertEqual(self.phone_status(), (0, True))
        self.assertEqual(self.phone.ForcePhoneOff(False), 0)
        self.await_condition(lambda: self.phone_status() == (2, False), "the phone's return")

    def test_death_during_sleep(self):
        self.prepare_for_sleep(True)
        self.await_inhibited(False)
        self.program.send_signal(signal.SIGKILL)
        self.program.wait(LIMIT)
        self.manager.UpdateProperties(MANAGER, {"PreparingForSleep": False}, dbus_interface=dbusmock.MOCK_IFACE)
        self.start_program()
        self.await_condition(lambda: self.phone_status() == (2, False), "the phone's return")


if __name__ == "__main__":
    unittest.main(verbosity=2, warnings="ignore")
