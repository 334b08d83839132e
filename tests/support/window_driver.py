"""Drives a program's windows through the accessibility bus, as a screen reader does.

Every control is found by its role and its name; text is read, actions are done and states are asked
for as the AT-SPI interfaces offer them (https://docs.gtk.org/atspi2/). It takes a session that
tests/support/with-session has made, and Debian's own Python with its Gio.

Requests go straight onto the bus: an action's answer comes only when what it started has ended, a
whole preparation for example, so that it must be possible to ask for one without waiting for it.
"""

import os
import signal
import subprocess
import time

from gi.repository import Gio, GLib

ACCESSIBLE = 'org.a11y.atspi.Accessible'
ACTION = 'org.a11y.atspi.Action'
COMPONENT = 'org.a11y.atspi.Component'
TEXT = 'org.a11y.atspi.Text'

STATES = {'active': 1, 'enabled': 8, 'showing': 25}

LABELLED_BY = 2  # of the kinds of relations

# Only what hangs takes so long, however busy the machine is.
ANSWER_LIMIT_MS = 300_000
WAIT_LIMIT_S = 300
# An emulated machine sets it: there, questions without a pause would keep the program from its work.
PAUSE_S = float(os.environ.get('WINDOW_DRIVER_PAUSE_S', '0.02'))


class Timeout(AssertionError):
    """What was waited for didn't come."""


def wait_for(condition, what, limit=WAIT_LIMIT_S):
    """The first true value of condition(). Raises Timeout, naming `what`, after `limit` seconds."""
    deadline = time.monotonic() + limit
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            raise Timeout(f'Waited {limit} s in vain for {what}')
        time.sleep(PAUSE_S)


class Bus:
    """The session's accessibility bus."""

    def __init__(self):
        session = Gio.bus_get_sync(Gio.BusType.SESSION, None)
        address = session.call_sync('org.a11y.Bus', '/org/a11y/bus', 'org.a11y.Bus', 'GetAddress',
                                    None, None, Gio.DBusCallFlags.NONE, -1, None).unpack()[0]
        flags = Gio.DBusConnectionFlags
        self._connection = Gio.DBusConnection.new_for_address_sync(
            address, flags.AUTHENTICATION_CLIENT | flags.MESSAGE_BUS_CONNECTION, None, None)

    def call(self, owner, path, interface, method, arguments=None):
        reply = self._connection.call_sync(owner, path, interface, method, arguments, None,
                                           Gio.DBusCallFlags.NONE, ANSWER_LIMIT_MS, None)
        return reply.unpack()

    def send(self, owner, path, interface, method, arguments):
        """A call whose answer nobody waits for."""
        message = Gio.DBusMessage.new_method_call(owner, path, interface, method)
        message.set_flags(Gio.DBusMessageFlags.NO_REPLY_EXPECTED)
        message.set_body(arguments)
        self._connection.send_message(message, Gio.DBusSendMessageFlags.NONE)
        self._connection.flush_sync(None)

    def listen(self, event, signal, callback):
        """Asks programs for such an event, and calls back with each one's signal."""
        self.call('org.a11y.atspi.Registry', '/org/a11y/atspi/registry', 'org.a11y.atspi.Registry',
                  'RegisterEvent', GLib.Variant('(s)', (event,)))
        self._connection.signal_subscribe(None, 'org.a11y.atspi.Event.Object', signal, None, None,
                                          Gio.DBusSignalFlags.NONE, callback)

    def applications(self):
        """The root element of each program on the bus."""
        children = self.call('org.a11y.atspi.Registry', '/org/a11y/atspi/accessible/root',
                             ACCESSIBLE, 'GetChildren')[0]
        return [Element(self, owner, path) for owner, path in children]


class NewNames:
    """The names that elements of programs take on, as the bus announces them to a screen reader."""

    def __init__(self):
        self._bus = Bus()
        self._names = []
        self._bus.listen('object:property-change:accessible-name', 'PropertyChange', self._note)

    def _note(self, _connection, owner, path, _interface, _signal, arguments):
        if arguments.unpack()[0] == 'accessible-name':
            self._names.append(Element(self._bus, owner, path).name)

    def heard(self):
        """All so far, in their order. One that changed again before it was asked for is the later one."""
        while GLib.MainContext.default().iteration(False):
            pass
        return self._names


class Element:
    """One control, window or program. An element that has gone has no children and no text."""

    def __init__(self, bus, owner, path):
        self._bus, self._owner, self._path = bus, owner, path

    def __repr__(self):
        return f'{self.role} "{self.name}"'

    def _call(self, interface, method, arguments=None):
        try:
            return self._bus.call(self._owner, self._path, interface, method, arguments)
        except GLib.Error as error:
            if Gio.DBusError.is_remote_error(error):
                return None
            raise

    @property
    def name(self):
        reply = self._call('org.freedesktop.DBus.Properties', 'Get',
                           GLib.Variant('(ss)', (ACCESSIBLE, 'Name')))
        return reply[0] if reply else ''

    @property
    def role(self):
        reply = self._call(ACCESSIBLE, 'GetRoleName')
        return reply[0] if reply else ''

    @property
    def process_id(self):
        return self._bus.call('org.freedesktop.DBus', '/org/freedesktop/DBus', 'org.freedesktop.DBus',
                              'GetConnectionUnixProcessID', GLib.Variant('(s)', (self._owner,)))[0]

    @property
    def children(self):
        reply = self._call(ACCESSIBLE, 'GetChildren')
        return [Element(self._bus, owner, path) for owner, path in reply[0]] if reply else []

    @property
    def text(self):
        reply = self._call(TEXT, 'GetText', GLib.Variant('(ii)', (0, -1)))
        return reply[0] if reply else ''

    @property
    def rectangle(self):
        """Left, top, width and height on the screen, in pixels."""
        return self._call(COMPONENT, 'GetExtents', GLib.Variant('(u)', (0,)))[0]

    def has(self, state):
        reply = self._call(ACCESSIBLE, 'GetState')
        words = reply[0] if reply else [0, 0]
        number = STATES[state]
        return bool(words[number // 32] >> number % 32 & 1)

    def descendants(self):
        for child in self.children:
            yield child
            yield from child.descendants()

    def find_all(self, role):
        return [element for element in self.descendants() if element.role == role]

    def find(self, role, name):
        """The element of that role and name, or None."""
        return next((element for element in self.find_all(role) if element.name == name), None)

    def control(self, role, name):
        """As find, for an element that has to be there."""
        element = self.find(role, name)
        assert element, f'No {role} "{name}" among:\n{self.outline()}'
        return element

    def labelled(self, role, label):
        """The element of that role that names the label as its own."""
        for element in self.find_all(role):
            relations = element._call(ACCESSIBLE, 'GetRelationSet')
            for kind, targets in relations[0] if relations else []:
                if kind == LABELLED_BY and Element(self._bus, *targets[0]).name == label:
                    return element
        raise AssertionError(f'No {role} labelled "{label}" among:\n{self.outline()}')

    def labels(self):
        return [label.name for label in self.find_all('label') if label.name]

    def press(self):
        """Asks for the element's first action and doesn't wait for what comes of it."""
        self._bus.send(self._owner, self._path, ACTION, 'DoAction', GLib.Variant('(i)', (0,)))

    def take_focus(self):
        self._call(COMPONENT, 'GrabFocus')

    def outline(self, depth=0):
        lines = [f'{"  " * depth}{self!r} {self.text!r}']
        return '\n'.join(lines + [child.outline(depth + 1) for child in self.children])


class Application:
    """A running program with windows."""

    def __init__(self, command, name=None, **options):
        """Starts the command, whose program has `name` on the bus, and waits until it is there."""
        self._name = name or os.path.basename(command[0])
        self._bus = Bus()  # first: a program that starts before its session has one registers late
        self.process = subprocess.Popen(command, start_new_session=True, **options)
        self._root = wait_for(self._registered, f'{self._name} on the accessibility bus')

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            os.killpg(self.process.pid, signal.SIGKILL)  # also what a launcher has started
            self.process.wait()

    def _registered(self):
        assert self.process.poll() is None, f'{self._name} ended with {self.process.returncode}'
        return next((root for root in self._bus.applications() if root.name == self._name), None)

    @property
    def process_id(self):
        """Of the program itself, also when the command that was started is a launcher of it."""
        return self._root.process_id

    def windows(self):
        return [window for window in self._root.children if window.has('showing')]

    def window(self, title):
        """The window of that title, waited for."""
        return self.wait_for(lambda: next((w for w in self.windows() if w.name == title), None),
                             f'the window "{title}"')

    def dialog(self, holds):
        """The window, other than the first, one of whose labels is that text; waited for."""
        return self.wait_for(lambda: self.dialog_now(holds), f'the dialog that says "{holds}"')

    def dialog_now(self, holds):
        return next((w for w in self.windows()[1:] if holds in w.labels()), None)

    def wait_for(self, condition, what):
        """As the function, and tells in vain what was there instead."""
        try:
            return wait_for(condition, what)
        except Timeout as timeout:
            raise Timeout(f'{timeout}, but there was:\n{self._root.outline()}') from None
