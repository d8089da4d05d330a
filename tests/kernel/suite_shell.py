"""Sends commands to the suite without a process for each: a session of its shell, for changes, and the sockets through which
the shell reads from the programs, which take a fiftieth of the shell's time. A shell takes half a second to start here."""
import json
import os
import re
import socket
import subprocess

PROMPT = re.compile(rb"(?:^|\n)\S+# $")  # the host's name, and the node in parentheses


class Shell:
    def __init__(self, words):
        environment = {name: value for name, value in os.environ.items() if name != "VTYSH_PAGER"}  # a process for each command
        self.process = subprocess.Popen(words, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                        env=environment, cwd="/")
        self.read_answer()

    def close(self):
        self.process.stdin.close()
        self.process.wait()
        self.process.stdout.close()

    def read_answer(self):
        answer = b""
        while not PROMPT.search(answer[-80:]):
            more = os.read(self.process.stdout.fileno(), 1 << 16)
            assert more, f"the suite's shell ended: {answer[-300:]!r}"
            answer += more
        return PROMPT.sub(b"", answer).decode(errors="replace")

    def ask(self, command):
        """The answer, without the command that the shell repeats."""
        self.process.stdin.write(command.encode() + b"\n")
        self.process.stdin.flush()
        return self.read_answer().partition("\n")[2]


class Programs:
    """A command to a program's socket ends with a zero octet; the answer ends with three of them and a status."""

    def __init__(self, folder):
        self.folder = folder

    def ask(self, program, command):
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as connection:
            connection.settimeout(20)
            connection.connect(str(self.folder / f"{program}.vty"))
            self.ask_connected(connection, program, "enable")
            return self.ask_connected(connection, program, command)

    @staticmethod
    def ask_connected(connection, program, command):
        connection.sendall(command.encode() + b"\0")
        answer = b""
        while answer[-4:-1] != b"\0\0\0":
            more = connection.recv(1 << 16)
            if not more:
                raise ConnectionError(f"{program} ended while it was asked {command}")
            answer += more
        return answer[:-4].decode(errors="replace")

    def ask_json(self, program, command):
        documents = list(self.documents(self.ask(program, command)))
        return documents[0] if documents else {}

    def ask_each(self, program, command):
        """The entries of all documents of an answer."""
        return [entry for document in self.documents(self.ask(program, command)) for entry in document.items()]

    @staticmethod
    def documents(text):
        decoder, at = json.JSONDecoder(), text.find("{")
        while at >= 0:
            document, at = decoder.raw_decode(text, at)
            yield document
            at = text.find("{", at)
