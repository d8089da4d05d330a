"""What was done to the system and what was found, with seconds since the start. All threads write to it."""
import threading
import time


class Journal:
    def __init__(self, folder=None):
        self.began, self.lock = time.monotonic(), threading.Lock()
        self.lines, self.errors = [], []
        self.windows = {}  # what was disturbed: [begin, end or None while it is]
        self.file = open(folder / "journal.log", "w", encoding="utf-8") if folder else None

    def note(self, text):
        line = f"{time.monotonic() - self.began:8.2f} {text}"
        with self.lock:
            self.lines.append(line)
            if self.file:
                print(line, file=self.file, flush=True)

    def error(self, text):
        self.note("ERROR " + text)
        with self.lock:
            self.errors.append(text)

    def begin(self, what):
        """`what` is disturbed from now on, and until `end`."""
        with self.lock:
            windows = self.windows.setdefault(what, [])
            if not windows or windows[-1][1] is not None:
                windows.append([time.monotonic(), None])

    def end_all(self):
        """The system has recovered from everything."""
        now = time.monotonic()
        with self.lock:
            for windows in self.windows.values():
                windows[-1][1] = windows[-1][1] or now

    def disturbed(self, names, since, until):
        """Whether one of them was disturbed at any time between these two."""
        with self.lock:
            return any(begin <= until and (end is None or end >= since)
                       for name in names for begin, end in self.windows.get(name, ()))
