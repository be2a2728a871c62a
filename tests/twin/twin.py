"""Runs a recorder of the library and its model side by side, and compares the disk after every call."""

import os
import shutil
import signal
import struct
import subprocess
import tempfile
import zlib

import model
import vesk_format


class Mismatch(Exception):
    """The library did something else than the model."""


class Driver:
    """The library in a process of its own (driver.c)."""

    def __init__(self, command, directory):
        self.process = subprocess.Popen(
            command, cwd=directory, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, encoding="ascii")

    def call(self, *words):
        """The result of a command and the error cell after it."""
        try:
            self.process.stdin.write(" ".join(map(str, words)) + "\n")
            self.process.stdin.flush()
        except BrokenPipeError:
            pass
        answer = self.process.stdout.readline().split()
        if len(answer) != 2:
            raise Mismatch("the driver ended with %s in: %.80s" % (self.process.wait(), " ".join(map(str, words))))
        return int(answer[0]), int(answer[1])

    def stop(self):
        self.process.stdin.close()
        status = self.process.wait()
        self.process.stdout.close()
        if status:
            raise Mismatch("the driver ended with status %d" % status)

    def kill(self):
        self.process.send_signal(signal.SIGKILL)
        self.process.wait()
        self.process.stdin.close()
        self.process.stdout.close()


class Twin:
    """A recorder, its model, and the folder that must look the same in both."""

    def __init__(self, command, base=None):
        self.command = command
        self.directory = tempfile.mkdtemp(prefix="vesk-twin-")
        self.base = base or os.path.join(self.directory, "r")
        self.driver = Driver(command, self.directory)
        self.disk = {}
        self.model = model.Recorder(self.disk, self.base)
        self.arrays = {}
        self.verified = {}  # path: streams and bytes that were found right, and the file of the model

    # Commands

    def create(self, samples, intervals):
        self.model.create(samples, intervals)
        self._expect((1, 0), "create", self.base, samples, intervals)
        self.verify(everything=True)

    def open(self):
        error = self.model.open()
        self._expect((1, error), "open", self.base)
        self.verify()
        return error

    def close(self):
        self.model.close()
        self._expect((1, 0), "close")
        self.verify()

    def crash(self):
        """Kills the process that holds the recorder; nothing that was acknowledged may be lost."""
        self.model.crash()
        self.driver.kill()
        self.driver = Driver(self.command, self.directory)
        self.arrays = {}
        self.verify(everything=True)

    def sensors(self, identifier, names):
        """Defines an array for vector(); equal arrays of other identifiers are different objects in the library."""
        if self.arrays.get(identifier) != names:
            self.arrays[identifier] = names
            self._expect((1, 0), "sensors", identifier, *(name.hex() for name in names))

    def vector(self, identifier, seconds, values):
        stage = self.model.number
        names = self.arrays[identifier]
        result = self.model.write_vector(seconds, names, values)
        found, _ = self.driver.call("vector", identifier, seconds, struct.pack(">%dd" % len(values), *values).hex())
        if found != result:
            raise Mismatch("vector: result %d, should be %d" % (found, result))
        self.verify(everything=self.model.number != stage)
        return result

    def event(self, event_type, seconds, text):
        result = self.model.write_event(event_type, seconds, text)
        self._expect((result, 0), "event", event_type, seconds, text.hex())
        self.verify()

    def tagged_event(self, event_type, seconds, text):
        result = self.model.write_tagged_event(event_type, seconds, text)
        self._expect((result, 0), "tagged", event_type, seconds, text.hex())
        self.verify()

    def rewrite(self, rng):
        """Stores the same contents in other streams, as another program would; the recorder must be closed."""
        for path, file in self.disk.items():
            if isinstance(file, bytes) or not file.streams:
                continue
            content = b"".join(file.streams)
            cuts = sorted(rng.randint(0, len(content)) for _ in range(rng.choice((0, 1, 3, 10))))
            file.streams = [content[a:b] for a, b in zip([0] + cuts, cuts + [len(content)])]
            with open(os.path.join(self.directory, path), "wb") as out:
                for piece in file.streams:
                    deflater = zlib.compressobj(rng.randint(0, 9), zlib.DEFLATED, rng.choice((9, 12, 15)))
                    out.write(deflater.compress(piece) + deflater.flush())
        self.verify(everything=True)

    def end(self):
        """Closes down; what is left open is closed by the driver."""
        self.driver.stop()
        self.model.close()
        self.verify(everything=True)
        shutil.rmtree(self.directory)

    def abandon(self):
        """After a failure: ends the driver and leaves the files."""
        if self.driver.process.poll() is None:
            self.driver.kill()

    def _expect(self, answer, *words):
        found = self.driver.call(*words)
        if found != answer:
            raise Mismatch("%s: result and error %r, should be %r" % (words[0], found, answer))

    # Comparison

    def verify(self, everything=False):
        """Compares the disk with the model: the files, and what was added to them, or all of their contents."""
        found = set(os.listdir(self.directory))
        expected = {os.path.basename(path) for path in self.disk}
        if found != expected:
            raise Mismatch("files %s, should be %s" % (sorted(found), sorted(expected)))
        for path, file in self.disk.items():
            where = os.path.join(self.directory, path)
            if isinstance(file, bytes):
                self._verify_state(where, file)
            else:
                self._verify_buffer(where, file, everything)

    def _verify_state(self, path, expected):
        with open(path, "rb") as file:
            found = file.read()
        if found != expected:
            raise Mismatch("%s: %s, should be %s" % (path, found.hex(), expected.hex()))
        vesk_format.parse_state(found)

    def _verify_buffer(self, path, file, everything):
        known, streams, size = self.verified.get(path, (file, 0, 0))
        if everything or known is not file:
            streams, size = 0, 0
        elif streams == len(file.streams) and size == os.stat(path).st_size:
            return
        with open(path, "rb") as source:
            source.seek(size)
            data = source.read()
        try:
            found, savepoint = vesk_format.split_streams(data)
        except vesk_format.Malformed as error:
            raise Mismatch("%s: behind %d: %s" % (path, size, error)) from None
        if savepoint != len(data):
            raise Mismatch("%s: torn stream at %d" % (path, size + savepoint))
        if len(found) != len(file.streams) - streams:
            raise Mismatch("%s: %d streams, should be %d" % (path, streams + len(found), len(file.streams)))
        for i, (stream, expected) in enumerate(zip(found, file.streams[streams:]), streams):
            if stream.content != expected:
                raise Mismatch("%s: stream %d: %s" % (path, i, difference(stream.content, expected)))
        if everything and file.streams:
            vesk_format.parse_buffer(b"".join(stream.content for stream in found))
        self.verified[path] = (file, len(file.streams), size + savepoint)


def difference(found, expected):
    """Where two contents begin to differ, with the bytes around."""
    at = next((i for i, (a, b) in enumerate(zip(found, expected)) if a != b), min(len(found), len(expected)))
    around = slice(max(at - 16, 0), at + 16)
    return "%d and %d bytes, at %d: %s, should be %s" % (
        len(found), len(expected), at, found[around].hex(), expected[around].hex())


def add_arguments(parser):
    """The arguments of every test that runs the driver."""
    parser.add_argument("--driver", required=True, help="the program built from driver.c")
    parser.add_argument("--launcher", default="", help="what runs the driver, words separated by ;")


def command(arguments):
    return [word for word in arguments.launcher.split(";") if word] + [os.path.abspath(arguments.driver)]
