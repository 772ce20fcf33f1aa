#!/usr/bin/python3
"""Calls a number and shows the progress of the call. usage: call.py NUMBER

Needs python3-gi.
"""

import sys

from gi.repository import Gio, GLib

SERVICE = "com.quillmark.kova.phonemanager"
PATH = "/com/quillmark/kova/phonemanager/phoneobj"
INTERFACE = "com.quillmark.kova.phoneinterface"

# The service has one thread and may be busy with the modem, so an answer can take minutes.
ANSWER_TIMEOUT_MS = 300000

TERMINATED, ANSWERED = 0, 2

MEANINGS = {
    -55: "a call is in progress, or this one could not be placed or heard",
    -57: "no SIM card, or not yet checked: wait for SimPresent(true)",
    -58: "not registered to the network: wait for PhoneStatus(2)",
}


class Call:
    def __init__(self, number):
        self.loop = GLib.MainLoop()
        self.exit_status = 1
        self.placed = False
        self.answered = False
        self.bus = Gio.bus_get_sync(Gio.BusType.SESSION)
        # Subscribe before the call, so that no signal is missed.
        self.bus.signal_subscribe(SERVICE, INTERFACE, "VoiceCall", PATH, None, Gio.DBusSignalFlags.NONE, self.on_voice_call)
        # A late answer does not mean that the service is dead, but the loss of its name does.
        Gio.bus_watch_name_on_connection(
            self.bus, SERVICE, Gio.BusNameWatcherFlags.AUTO_START, None, lambda *_: self.end(1, "the phone service is not there")
        )
        self.bus.call(
            SERVICE, PATH, INTERFACE, "VoiceCallMake", GLib.Variant("(s)", (number,)), GLib.VariantType("(i)"),
            Gio.DBusCallFlags.NONE, ANSWER_TIMEOUT_MS, None, self.on_answer,
        )

    def on_answer(self, bus, result):
        try:
            (status,) = bus.call_finish(result)
        except GLib.Error as error:
            self.end(1, error.message)
            return
        if status != 0:
            # After -55 a call may be in progress without sound. VoiceCall(0) will report its end.
            self.end(1, MEANINGS.get(status, f"status {status}"))
            return
        self.placed = True
        print("dialling", flush=True)

    def on_voice_call(self, _bus, _sender, _path, _interface, _signal, arguments):
        (status,) = arguments
        if not self.placed:
            return  # the end of an earlier call
        if status == ANSWERED:
            self.answered = True
            print("answered", flush=True)
        elif status == TERMINATED:
            self.end(0, "ended") if self.answered else self.end(1, "not answered")

    def end(self, exit_status, text):
        print(text, flush=True)
        self.exit_status = exit_status
        self.loop.quit()


if len(sys.argv) != 2:
    sys.exit("usage: call.py NUMBER")
call = Call(sys.argv[1])
call.loop.run()
sys.exit(call.exit_status)
