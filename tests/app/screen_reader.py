"""What a screen reader finds of the real quillorn binary through AT-SPI.

Runs the program under Xvfb on a private session bus with the accessibility
bus started, reads its accessibility tree with pyatspi and listens to the
events a screen reader listens to: both listings are tables named "Left pane"
and "Right pane", each row reads as name, size and date, the cursor row is the
focus and follows Down, Up and Tab, and Space makes the tagged row and its
cells selected and deselected again.

Usage: screen_reader.py <path to quillorn>. Exits 77 when a tool is missing.
"""

import importlib.util
import os
import select
import shutil
import subprocess
import sys
import tempfile
import time

SKIP = 77
# Folders come first, then names in order; every item dated 5 March 2024.
LEFT_ROWS = [
    ("docs", "<DIR>", "2024-03-05"),
    ("alpha.txt", "6 bytes", "2024-03-05"),
    ("beta.txt", "11 bytes", "2024-03-05"),
]
RIGHT_ROWS = [("x.txt", "3 bytes", "2024-03-05")]


def skip_unless_available():
    def skip(reason):
        print(f"SKIP: {reason}")
        sys.exit(SKIP)

    tools = {"Xvfb": "xvfb", "xdotool": "xdotool", "dbus-run-session": "dbus-daemon"}
    for tool, package in tools.items():
        if not shutil.which(tool):
            skip(f"{tool} is not installed (Debian package {package})")
    if not os.path.exists("/usr/share/dbus-1/services/org.a11y.Bus.service"):
        skip("the accessibility bus is not installed (Debian package at-spi2-core)")
    if importlib.util.find_spec("pyatspi") is None:
        skip(f"{sys.executable} has no pyatspi (Debian package python3-pyatspi)")


def make_folders(work):
    left, right = os.path.join(work, "Left"), os.path.join(work, "Right")
    os.makedirs(os.path.join(left, "docs"))
    os.makedirs(right)
    for folder, name, text in [(left, "alpha.txt", "alpha\n"), (left, "beta.txt", "beta file\n\n"),
                               (right, "x.txt", "x\n\n")]:
        with open(os.path.join(folder, name), "w") as file:
            file.write(text)
    stamp = time.mktime((2024, 3, 5, 12, 0, 0, 0, 0, -1))
    for folder in (left, right):
        for name in os.listdir(folder):
            os.utime(os.path.join(folder, name), (stamp, stamp))
    return left, right


def start_xvfb(work, processes):
    reader, writer = os.pipe()
    processes.append(subprocess.Popen(
        ["Xvfb", "-displayfd", str(writer), "-screen", "0", "1280x800x24", "-nolisten", "tcp"],
        pass_fds=(writer,), stdout=subprocess.DEVNULL, stderr=open(os.path.join(work, "xvfb.log"), "w")))
    os.close(writer)
    if not select.select([reader], [], [], 10)[0]:
        raise SystemExit("HARNESS: Xvfb did not start")
    os.environ["DISPLAY"] = ":" + os.read(reader, 16).decode().strip()


class Session:
    def __init__(self, binary, work, processes):
        # pyatspi connects at import; the display and the buses are up by now.
        import pyatspi
        from gi.repository import GLib
        self.pyatspi, self.context = pyatspi, GLib.MainContext.default()
        self.failures = 0
        self.focus_events, self.selection_events = [], []
        pyatspi.Registry.registerEventListener(self.heard, "focus:", "object:state-changed:selected")
        # Starting the accessibility bus before the program, as a desktop session
        # does: the program looks for it at start and does not start it itself.
        pyatspi.Registry.getDesktop(0)
        left, right = make_folders(work)
        env = dict(os.environ, QT_QPA_PLATFORM="xcb", QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1", LC_ALL="C.UTF-8",
                   XDG_CONFIG_HOME=os.path.join(work, "config"), XDG_DATA_HOME=os.path.join(work, "data"),
                   XDG_STATE_HOME=os.path.join(work, "state"),
                   QUILLORN_RELEASE_PREVIEW_LEFT=left, QUILLORN_RELEASE_PREVIEW_RIGHT=right)
        env.pop("WAYLAND_DISPLAY", None)
        self.log = os.path.join(work, "app.log")
        self.app = subprocess.Popen([binary], env=env, stdout=open(self.log, "w"), stderr=subprocess.STDOUT)
        processes.append(self.app)

    def heard(self, event):
        if event.type.startswith("focus"):
            self.focus_events.append(event.source)
        else:
            self.selection_events.append((event.source, event.detail1))

    def check(self, what, ok):
        print(("ok: " if ok else "FAIL: ") + what)
        self.failures += not ok

    def wait_for(self, condition, seconds=20):
        deadline = time.monotonic() + seconds
        while True:
            while self.context.pending():
                self.context.iteration(False)
            try:
                if condition():
                    return True
            except Exception:  # an object that went away while it was read
                pass
            if time.monotonic() > deadline:
                return False
            time.sleep(0.05)

    def harness(self, what):
        with open(self.log) as log:
            print(f"HARNESS: {what}\n{log.read()}")
        sys.exit(1)

    def application(self):
        desktop = self.pyatspi.Registry.getDesktop(0)
        for index in range(desktop.childCount):
            candidate = desktop.getChildAtIndex(index)
            if candidate is not None and candidate.get_process_id() == self.app.pid:
                return candidate
        return None

    def tables(self, root):
        found, queue = {}, [root]
        while queue:
            for child in queue.pop(0):
                if child is None:
                    continue
                if child.getRole() == self.pyatspi.ROLE_TABLE:
                    found.setdefault(child.name, []).append(child)
                else:
                    queue.append(child)
        return found

    def states(self, accessible):
        accessible.clear_cache()
        return accessible.getState()

    def has(self, accessible, state):
        return self.states(accessible).contains(state)

    def keys(self, *names):
        subprocess.run(["xdotool", "key", "--delay", "80", *names], check=True)


def rows_of(table):
    cells = table.queryTable()
    return [table.getChildAtIndex(cells.nColumns + row) for row in range(cells.nRows)]


def run(binary, work, processes):
    start_xvfb(work, processes)
    session = Session(binary, work, processes)
    atspi = session.pyatspi
    if not session.wait_for(lambda: session.application() is not None, 90):
        session.harness("the program did not join the accessibility bus")
    tables = {}
    if not session.wait_for(lambda: tables.update(session.tables(session.application())) or
                            len(tables.get("Left pane", [])) == 1 and len(tables.get("Right pane", [])) == 1):
        session.check(f"the listings are tables named Left pane and Right pane (found {list(tables)})", False)
        return session.failures
    left, right = tables["Left pane"][0], tables["Right pane"][0]
    session.check("the listings are tables named Left pane and Right pane", True)
    session.check("a listing allows many selected rows", session.has(left, atspi.STATE_MULTISELECTABLE))

    # Reading: the table's rows and cells and the rows' names.
    session.wait_for(lambda: left.queryTable().nRows == len(LEFT_ROWS) and right.queryTable().nRows == 1)
    for table, expected in ((left, LEFT_ROWS), (right, RIGHT_ROWS)):
        cells = table.queryTable()
        read = [tuple(cells.getAccessibleAt(row, column).name for column in range(cells.nColumns))
                for row in range(cells.nRows)]
        session.check(f"{table.name} has the cells {expected}", read == expected)
        names = [row.name for row in rows_of(table)]
        session.check(f"{table.name} reads each row as name, size and date",
                      names == [", ".join(cells) for cells in expected])
        first = rows_of(table)[0]
        session.check(f"{table.name}: a row is a table row holding its cells",
                      first.getRole() == atspi.ROLE_TABLE_ROW and first.childCount == 3 and
                      first.getChildAtIndex(0).getRole() == atspi.ROLE_TABLE_CELL and
                      first.getChildAtIndex(0).parent == first)

    # Focus: the window gets the keyboard, then the cursor moves with the keys.
    window = subprocess.run(["xdotool", "search", "--sync", "--onlyvisible", "--pid", str(session.app.pid),
                             "--name", "^Quillorn v"], capture_output=True, text=True).stdout.split()
    if not window:
        session.harness("the main window did not appear")
    subprocess.run(["xdotool", "windowfocus", "--sync", window[0]], check=False)
    session.keys("Up", "Up", "Up", "Up")

    def focus_on(table, row):
        target = rows_of(table)[row]
        return (session.focus_events and session.focus_events[-1] == target and
                session.has(target, atspi.STATE_FOCUSED))

    def focused_rows():
        return [(table.name, index) for table in (left, right)
                for index, row in enumerate(rows_of(table)) if session.has(row, atspi.STATE_FOCUSED)]

    session.check("the cursor row of the active pane is announced as the focus", session.wait_for(
        lambda: focus_on(left, 0)))
    session.check("it is the one focused row of both listings", focused_rows() == [("Left pane", 0)])
    session.check("rows are focusable and selectable, cells are not focused",
                  all(session.has(row, atspi.STATE_FOCUSABLE) and session.has(row, atspi.STATE_SELECTABLE)
                      for row in rows_of(left)) and
                  not any(session.has(cell, atspi.STATE_FOCUSED) for cell in rows_of(left)[0]))
    session.keys("Down")
    session.check("Down moves the focus to the next row", session.wait_for(lambda: focus_on(left, 1)))
    session.check("and only there", focused_rows() == [("Left pane", 1)])

    # Tags: Space tags the cursor row and moves on; Up and Space untag it.
    alpha = rows_of(left)[1]
    session.keys("space")
    session.check("Space on alpha.txt announces its row as selected",
                  session.wait_for(lambda: (alpha, 1) in session.selection_events))
    session.check("its row and cells are selected", session.has(alpha, atspi.STATE_SELECTED) and
                  all(session.has(cell, atspi.STATE_SELECTED) for cell in alpha))
    session.check("the table lists it as its one selected row",
                  list(left.queryTable().getSelectedRows()) == [1] and left.queryTable().isRowSelected(1))
    session.check("the focus moved on with the cursor", session.wait_for(lambda: focus_on(left, 2)))
    session.keys("Up", "space")
    session.check("Space again announces it as no longer selected",
                  session.wait_for(lambda: (alpha, 0) in session.selection_events))
    session.check("and nothing is selected", not session.has(alpha, atspi.STATE_SELECTED) and
                  list(left.queryTable().getSelectedRows()) == [])

    # Other panes and fields.
    session.keys("Tab")
    session.check("Tab moves the focus to the right pane's cursor row", session.wait_for(
        lambda: session.focus_events[-1] in rows_of(right) and focused_rows() == [("Right pane", 0)]))
    session.keys("ctrl+k")
    session.check("in the filter field no row is focused", session.wait_for(
        lambda: session.focus_events[-1].getRole() == atspi.ROLE_TEXT and not focused_rows()))
    session.keys("Escape")
    session.check("Escape in the filter field gives the focus back to the cursor row",
                  session.wait_for(lambda: focus_on(right, 0)))
    return session.failures


def main():
    binary = os.path.realpath(sys.argv[1])
    skip_unless_available()
    work = os.environ.get("QUILLORN_ON_PRIVATE_BUS")
    if not work:
        # A bus of its own, with the accessibility bus's socket in a folder of
        # its own, so that runs side by side never meet.
        work = tempfile.mkdtemp(prefix="quillorn-a11y-")
        runtime = os.path.join(work, "runtime")
        os.mkdir(runtime, 0o700)
        env = dict(os.environ, QUILLORN_ON_PRIVATE_BUS=work, XDG_RUNTIME_DIR=runtime)
        env.pop("DISPLAY", None)
        os.execvpe("dbus-run-session", ["dbus-run-session", "--", sys.executable, __file__, binary], env)
    processes = []
    try:
        failures = run(binary, work, processes)
    finally:
        for process in reversed(processes):
            process.terminate()
            process.wait()
        if not os.environ.get("KEEP"):
            shutil.rmtree(work, ignore_errors=True)
    if failures == 0:
        print("screen reader ok")
    sys.exit(1 if failures else 0)


if __name__ == "__main__":
    main()
