"""What a desktop has beside a file manager: notifications, and a display with a clipboard."""

import os
import subprocess
import threading

from conftest import NOT_AS_ROOT, TIMEOUT, wait_for
from jeepney import (DBusAddress, HeaderFields, MessageType, message_bus, new_method_return,
                     new_signal)

NOTIFICATIONS = DBusAddress("/org/freedesktop/Notifications", interface="org.freedesktop.Notifications")
CLOSED_BY_CALL = 3
REPLIES = {
    "CloseNotification": ("", ()),
    "GetServerInformation": ("ssss", ("Notifications", "tests", "1", "1.2")),
    "GetCapabilities": ("as", (["actions", "body", "body-markup"],)),
}


class Notifications:
    """Takes notifications on the session's bus, and shows nobody anything."""

    def __init__(self, session):
        self.bus = session.connect_to_bus()
        self.bus.send_and_get_reply(message_bus.RequestName(NOTIFICATIONS.interface))
        self.shown = []  # title and body of each, in order
        self.last = None  # number, sender and buttons
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        while True:
            try:
                call = self.bus.receive()
            except OSError:
                return  # the session is over
            if call.header.message_type == MessageType.method_call:
                member = call.header.fields[HeaderFields.member]
                signature, body = REPLIES.get(member) or ("u", (self.notify(call),))
                self.bus.send(new_method_return(call, signature, body))
                if member == "CloseNotification":
                    self.signal("NotificationClosed", "uu", call.body[0], CLOSED_BY_CALL)

    def notify(self, call):
        _, replaced, _, title, body, buttons = call.body[:6]
        number = replaced or len(self.shown) + 1
        self.last = (number, call.header.fields[HeaderFields.sender], buttons)
        self.shown.append((title, body))
        return number

    def wait_for(self, title, body):
        wait_for(lambda: (title, body) in self.shown, f"the notification {title}: {body}")

    def press_button(self):
        """As some desktops do, which tell nobody but the program that the notification is of."""
        number, _, buttons = self.last
        self.signal("ActionInvoked", "us", number, buttons[0])

    def signal(self, name, signature, *body):
        message = new_signal(NOTIFICATIONS, name, signature, body)
        message.header.fields[HeaderFields.destination] = self.last[1]
        self.bus.send(message)


class Display:
    """An X server with nothing on it."""

    def __init__(self):
        reader, writer = os.pipe()
        self.server = subprocess.Popen(["Xvfb", "-displayfd", str(writer), "-nolisten", "tcp"],
                                       pass_fds=[writer], stderr=subprocess.DEVNULL)
        os.close(writer)
        with os.fdopen(reader) as number:
            self.environment = {"DISPLAY": ":" + number.readline().strip()}
        self.paste = ["xclip", "-o", "-selection", "clipboard"]

    def clipboard(self):
        return subprocess.run(self.paste, capture_output=True, env=os.environ | self.environment,
                              check=False, timeout=TIMEOUT).stdout.decode()

    def end(self):
        self.server.terminate()
        self.server.wait()


class WaylandDisplay(Display):
    """The same of a Wayland compositor."""

    def __init__(self, folder):
        self.environment = {"XDG_RUNTIME_DIR": str(folder), "WAYLAND_DISPLAY": "wayland-1"}
        self.paste = ["wl-paste", "--no-newline"]
        (folder / "sway.conf").write_text("xwayland disable\n")
        self.server = subprocess.Popen(
            [*NOT_AS_ROOT, "sway", "--config", folder / "sway.conf"], stderr=subprocess.DEVNULL,
            env=os.environ | {"XDG_RUNTIME_DIR": str(folder), "WLR_BACKENDS": "headless",
                              "WLR_LIBINPUT_NO_DEVICES": "1", "WLR_RENDERER": "pixman"})
        wait_for((folder / "wayland-1").exists, "the compositor")
