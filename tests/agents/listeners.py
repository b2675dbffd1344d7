"""Ways to start one gateway process for each connection to a loopback socket."""

import socket
import subprocess
import threading
import time


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class CommandListener:
    """A program that listens and starts the gateway."""

    def __init__(self, home):
        self.port = free_port()
        self.process = subprocess.Popen(self.command(str(home.program)), env=home.environment(), cwd="/",
                                        stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)

    def __enter__(self):
        self.wait_until_it_listens()
        return self

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()

    def wait_until_it_listens(self):
        row = f"0100007F:{self.port:04X}"
        for _ in range(500):
            with open("/proc/net/tcp", encoding="ascii") as table:
                if any(line.split()[1] == row and line.split()[3] == "0A" for line in table):
                    return
            time.sleep(0.01)
        raise RuntimeError(f"nothing listens on 127.0.0.1:{self.port}")

    def command(self, gateway):
        raise NotImplementedError


class Socat(CommandListener):
    name = "socat"

    def command(self, gateway):
        return ["socat", f"TCP-LISTEN:{self.port},bind=127.0.0.1,fork,reuseaddr", f"EXEC:{gateway}"]


class SocketActivation(CommandListener):
    name = "socket activation"

    def command(self, gateway):
        return ["systemd-socket-activate", "--accept", "--inetd", f"--listen=127.0.0.1:{self.port}",
                "--setenv=MORVANE_HOME", "--setenv=LANG", "--setenv=ASAN_OPTIONS", "--setenv=UBSAN_OPTIONS", gateway]


class Inetd:
    """The connection itself is the gateway's standard input and output."""

    name = "inetd"

    def __init__(self, home):
        self.home = home
        self.server = socket.create_server(("127.0.0.1", 0))
        self.port = self.server.getsockname()[1]
        self.processes = []
        self.thread = threading.Thread(target=self.serve, daemon=True)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.server.shutdown(socket.SHUT_RDWR)  # ends accept()
        self.thread.join()
        self.server.close()
        for process in self.processes:
            process.wait(timeout=60)

    def serve(self):
        while True:
            try:
                connection, _ = self.server.accept()
            except OSError:
                return
            with connection:
                self.processes.append(subprocess.Popen([str(self.home.program)], stdin=connection, stdout=connection,
                                                       env=self.home.environment(), cwd="/"))


LISTENERS = (Socat, SocketActivation, Inetd)
