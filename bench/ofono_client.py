"""oFono's client: has it switch the modem on, writes each card that comes as a file into the folder of its argument, and hands
over the cards that lines of its input name: "NUMBER FILE…", answered by "sent" when oFono says so of all."""
import os
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib


def of_modem(interface):
    return dbus.Interface(bus.get_object("org.ofono", "/phonesim"), f"org.ofono.{interface}")


class Agent(dbus.service.Object):
    count = 0

    @dbus.service.method("org.ofono.SmartMessagingAgent", in_signature="aya{sv}")
    def ReceiveBusinessCard(self, card, _properties):
        self.count += 1
        name = f"{sys.argv[1]}/{self.count}"
        with open(f"{name}.part", "wb") as file:
            file.write(bytes(card))
        os.rename(f"{name}.part", name)


class Sender:
    waiting = 0

    def look(self, name, value):
        if name == "State" and value == "failed":
            sys.exit("oFono could not send a card")
        if name == "State" and value == "sent":
            self.waiting -= 1
            if self.waiting == 0:
                print("sent", flush=True)

    def read(self, _descriptor, _condition):
        number, *files = sys.stdin.readline().split()
        self.waiting = len(files)
        for name in files:
            with open(name, "rb") as file:
                of_modem("SmartMessaging").SendBusinessCard(number, dbus.ByteArray(file.read()))
        return True


def is_on():
    """Asks for what is missing."""
    try:
        for name in "Powered", "Online":
            of_modem("Modem").SetProperty(name, dbus.Boolean(True))
        return (of_modem("NetworkRegistration").GetProperties()["Status"] == "registered"
                and "org.ofono.SmartMessaging" in of_modem("Modem").GetProperties()["Interfaces"])
    except dbus.DBusException:  # not yet
        return False


def begin():
    if not is_on():
        return True
    of_modem("SmartMessaging").RegisterAgent(agent)
    bus.add_signal_receiver(sender.look, "PropertyChanged", "org.ofono.Message")
    GLib.io_add_watch(sys.stdin.fileno(), GLib.IO_IN, sender.read)
    print("ready", flush=True)
    return False


dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
bus = dbus.SystemBus()
agent = Agent(bus, "/agent")
sender = Sender()
GLib.timeout_add(100, begin)
GLib.MainLoop().run()
