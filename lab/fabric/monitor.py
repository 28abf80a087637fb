"""What a kernel announces of its neighbour table."""

import time


class Monitor:
    """What happens to the neighbour entries of a namespace, from here to its end."""

    def __init__(self, namespace, log):
        self._log = log
        self._process = namespace.start("ip", "monitor", "neigh", log=log)
        time.sleep(0.2)  # it says nothing when it listens

    def end(self):
        self._process.terminate()
        self._process.wait(10)

    def lost(self, binding):
        """Whether the entry of a binding has ever gone or been another one."""
        with open(self._log, encoding="ascii") as file:
            lines = [line.split() for line in file]
        told = [words for words in lines if binding.address in words]
        return any("Deleted" in words or binding.mac not in words for words in told)
