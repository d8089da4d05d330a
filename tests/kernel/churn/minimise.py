"""Finds a shorter sequence of operations with a mismatch: delta debugging, every attempt on a fresh system."""
import time

from replay import in_child


class Minimiser:
    def __init__(self, seed, settings, seconds):
        self.settings = settings
        self.seed, self.deadline = seed, time.monotonic() + seconds
        self.errors, self.attempts = None, 0

    def fails(self, batches):
        batches = [batch for batch in batches if batch]
        if not batches or time.monotonic() > self.deadline:
            return False
        self.attempts += 1
        try:
            errors = in_child(self.seed, batches, self.settings.of_attempt(batches))["errors"]
        except RuntimeError:
            return False  # it could not start
        if errors:
            self.errors = errors
        return bool(errors)

    def reduce(self, batches):
        """The shortest sequence found that still has a mismatch; None if the whole sequence has none any more."""
        batches = self.suffix(batches)
        if batches is None:
            return None
        batches = self.thin(batches, lambda left: left)
        flat = [(number, operation) for number, batch in enumerate(batches) for operation in batch]
        flat = self.thin(flat, regroup)
        return regroup(self.thin([(number, [step]) for number, operation in flat for step in operation], regroup))

    def suffix(self, batches):
        """The last batches often suffice."""
        count = 1
        while count < len(batches):
            if self.fails(batches[-count:]):
                return batches[-count:]
            count *= 3
        return batches if self.fails(batches) else None

    def thin(self, items, build):
        """Removes smaller and smaller parts while the rest fails."""
        size = len(items) // 2
        while size:
            at = 0
            while at < len(items):
                rest = items[:at] + items[at + size:]
                if rest and self.fails(build(rest)):
                    items = rest
                else:
                    at += size
            size //= 2
        return items


def regroup(flat):
    """Batches of (batch number, operation)."""
    numbers = sorted({number for number, _ in flat})
    return [[operation for number, operation in flat if number == each] for each in numbers]


def text_of(batches):
    """A step on a line; "compare" ends a batch."""
    return "".join(f"{step}\n" for batch in batches for operation in [*batch, ["compare"]] for step in operation)


def batches_of(text):
    return [[[step] for step in batch.strip().splitlines()] for batch in text.split("compare\n") if batch.strip()]
