#!/usr/bin/python3
"""A stand-in for the UDisks2 service on the bus named by DBUS_SESSION_BUS_ADDRESS.

Drives: STICK (16 GB, not mounted; mounts under MEDIA/STICK), CARD (mounted at
MEDIA/CARD; its unmount is refused as busy), BACKUP (mounted at MEDIA/BACKUP;
unmounts, powers off and disappears), and two file systems the menu must leave
out: DATA on the machine's own disk and SWAP, which udev says to ignore.
Prints "ready" once it owns the name, then one line per call.
Usage: fake_udisks2.py MEDIA
"""
import os
import sys

import dbus
import dbus.mainloop.glib
import dbus.service
from gi.repository import GLib

UDISKS = "org.freedesktop.UDisks2"
BLOCK, FILESYSTEM, DRIVE = UDISKS + ".Block", UDISKS + ".Filesystem", UDISKS + ".Drive"
PROPERTIES, MANAGER = "org.freedesktop.DBus.Properties", "org.freedesktop.DBus.ObjectManager"
ROOT = "/org/freedesktop/UDisks2"
media = sys.argv[1]


class DeviceBusy(dbus.DBusException):
    _dbus_error_name = UDISKS + ".Error.DeviceBusy"


def path_bytes(text):
    return dbus.ByteArray(text.encode() + b"\0")


def mount_points(points):
    return dbus.Array([path_bytes(p) for p in points], signature="ay")


def say(text):
    print(text, flush=True)


class Device(dbus.service.Object):
    def __init__(self, bus, path, interfaces):
        super().__init__(bus, path)
        self.path, self.interfaces = path, interfaces

    def set_mount_points(self, points):
        self.interfaces[FILESYSTEM]["MountPoints"] = mount_points(points)
        self.PropertiesChanged(FILESYSTEM, {"MountPoints": mount_points(points)}, [])

    @dbus.service.signal(PROPERTIES, signature="sa{sv}as")
    def PropertiesChanged(self, interface, changed, invalidated):
        pass

    @dbus.service.method(PROPERTIES, in_signature="s", out_signature="a{sv}")
    def GetAll(self, interface):
        return self.interfaces.get(interface, {})

    @dbus.service.method(FILESYSTEM, in_signature="a{sv}", out_signature="s")
    def Mount(self, options):
        label = str(self.interfaces[BLOCK]["IdLabel"])
        where = media + "/" + label
        say("Mount " + label)
        os.makedirs(where, exist_ok=True)
        self.set_mount_points([where])
        return where

    @dbus.service.method(FILESYSTEM, in_signature="a{sv}", out_signature="")
    def Unmount(self, options):
        label = str(self.interfaces[BLOCK]["IdLabel"])
        say("Unmount " + label)
        if label == "CARD":
            raise DeviceBusy("Error unmounting /dev/sdc1: target is busy")
        self.set_mount_points([])

    @dbus.service.method(DRIVE, in_signature="a{sv}", out_signature="")
    def Eject(self, options):
        say("Eject " + self.path)
        manager.remove_drive(self.path)

    @dbus.service.method(DRIVE, in_signature="a{sv}", out_signature="")
    def PowerOff(self, options):
        say("PowerOff " + self.path)
        manager.remove_drive(self.path)


class Manager(dbus.service.Object):
    def __init__(self, bus):
        super().__init__(bus, ROOT)
        self.bus, self.devices = bus, {}

    def add(self, path, interfaces):
        self.devices[path] = Device(self.bus, path, interfaces)

    def add_disk(self, name, label, size, mounted, drive, hints=None):
        drive_path = ROOT + "/drives/" + drive
        device = "/dev/" + name
        block = {"Device": path_bytes(device), "PreferredDevice": path_bytes(device), "IdLabel": label,
                 "HintName": "", "Size": dbus.UInt64(size), "Drive": dbus.ObjectPath(drive_path),
                 "HintIgnore": False, "HintSystem": False}
        block.update(hints or {})
        points = [media + "/" + label] if mounted else []
        self.add(ROOT + "/block_devices/" + name, {BLOCK: block, FILESYSTEM: {"MountPoints": mount_points(points)}})

    def remove_drive(self, drive_path):
        gone = [p for p, d in self.devices.items()
                if p == drive_path or str(d.interfaces.get(BLOCK, {}).get("Drive", "")) == drive_path]
        for path in gone:
            device = self.devices.pop(path)
            device.remove_from_connection()
            self.InterfacesRemoved(dbus.ObjectPath(path), dbus.Array(device.interfaces.keys(), signature="s"))

    @dbus.service.method(MANAGER, out_signature="a{oa{sa{sv}}}")
    def GetManagedObjects(self):
        return {dbus.ObjectPath(p): d.interfaces for p, d in self.devices.items()}

    @dbus.service.signal(MANAGER, signature="oa{sa{sv}}")
    def InterfacesAdded(self, path, interfaces):
        pass

    @dbus.service.signal(MANAGER, signature="oas")
    def InterfacesRemoved(self, path, interfaces):
        pass


def drive(removable, ejectable, media_removable=False):
    return {DRIVE: {"Vendor": "Quillorn", "Model": "Test Drive", "Removable": removable,
                    "MediaRemovable": media_removable, "Ejectable": ejectable, "CanPowerOff": removable}}


dbus.mainloop.glib.DBusGMainLoop(set_as_default=True)
bus = dbus.SessionBus()
manager = Manager(bus)
for name, interfaces in {"Stick": drive(True, False), "Card": drive(True, True, True),
                         "Backup": drive(True, False), "Internal": drive(False, False)}.items():
    manager.add(ROOT + "/drives/" + name, interfaces)
manager.add_disk("sdb1", "STICK", 16_000_000_000, False, "Stick")
manager.add_disk("sdc1", "CARD", 32_000_000_000, True, "Card")
manager.add_disk("sdd1", "BACKUP", 500_000_000_000, True, "Backup")
manager.add_disk("sda2", "DATA", 250_000_000_000, False, "Internal", {"HintSystem": True})
manager.add_disk("sdb2", "SWAP", 1_000_000_000, False, "Stick", {"HintIgnore": True})
name = dbus.service.BusName(UDISKS, bus)
say("ready")
GLib.MainLoop().run()
