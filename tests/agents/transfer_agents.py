"""The mail transfer agents, each in a room of its own, configured by the files in packaging/mta as they stand."""

import json
import os
import re
import shutil
import subprocess
import time
from pathlib import Path

from gateway_home import BUILD, GATEWAY, MORVANE, ROOT, Home
from room import Room, RoomError

CONFIGURATIONS = ROOT / "packaging" / "mta"
PACKAGES = BUILD / "agents" / "packages"
HOME = "/var/lib/morvane"
GATEWAY_PORT = 10027

# Writes the mails of a JSON file to port 25 over several connections at a time. Runs in the room.
SUBMIT = r"""
import json, smtplib, sys
from concurrent.futures import ThreadPoolExecutor
mails = json.load(open(sys.argv[1]))
def send(some):
    with smtplib.SMTP("127.0.0.1", 25, timeout=120) as agent:
        for mail in some:
            agent.sendmail(mail["sender"], mail["recipients"], mail["text"].encode("latin-1"),
                           mail_options=["BODY=8BITMIME"])
connections = int(sys.argv[2])
with ThreadPoolExecutor(connections) as pool:
    list(pool.map(send, [mails[n::connections] for n in range(connections)]))
"""


class RoomHome(Home):
    """The home in a room, owned by the account "morvane", which may name any sender."""

    def __init__(self, room):
        self.room = room
        self.path = room.path / HOME.lstrip("/")
        self.user = None
        self.program = GATEWAY
        room.account("morvane", HOME)
        room.run("morvane", "init", "--home", HOME)
        self.write("sys/unixin.trust", "morvane\n")
        self.give_to_owner()

    def give_to_owner(self):
        self.room.run("chown", "-R", "morvane:morvane", HOME)

    def morvane(self, *args, env=None, timeout=120):
        inside = [HOME if argument == str(self.path) else argument for argument in args]
        return self.room.run("env", f"MORVANE_HOME={HOME}", "morvane", *inside, timeout=timeout, check=False)


def install_gateway(room):
    for program in (GATEWAY, MORVANE):
        room.write(f"/usr/local/bin/{program.name}", program.read_bytes(), 0o755)
    share = room.path / "usr/local/share/morvane"
    shutil.rmtree(share, ignore_errors=True)
    shutil.copytree(BUILD / "share", share)


def fetch_packages(wanted):
    """The Debian packages named and what they need that is not installed here, downloaded once."""
    PACKAGES.mkdir(parents=True, exist_ok=True)
    # A machine that has another agent would remove it: nothing is installed, so that does not matter.
    plan = subprocess.run(["apt-get", "--simulate", "--no-install-recommends", "install", *wanted],
                          capture_output=True, text=True, check=True).stdout
    names = sorted({*wanted, *re.findall(r"^Inst (\S+)", plan, re.MULTILINE)})
    found = []
    for name in names:
        there = sorted(PACKAGES.glob(f"{name}_*.deb"))
        if not there:
            subprocess.run(["apt-get", "--quiet", "download", name], cwd=PACKAGES, check=True, capture_output=True)
            there = sorted(PACKAGES.glob(f"{name}_*.deb"))
        found.append(there[-1])
    return found


class TransferAgent:
    """What the tests ask of an agent. The steps of set_up are those that docs/mta.md tells an administrator."""

    name = ""
    packages = ()
    says_ehlo = True
    deferred = returned_to_sender = ""  # what its log says of an attempt put off, and of mail given up

    def __init__(self, parent):
        files = fetch_packages(self.packages)
        self.room = Room(name="relay.example.net", parent=parent)
        try:
            self.room.keep_log()
            install_gateway(self.room)
            self.home = RoomHome(self.room)
            self.room.unpack(files)
            self.set_up()
            self.room.wait_for(lambda: self.room.listens(25), f"{self.name} on port 25")
        except BaseException:
            self.room.__exit__()
            raise

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.room.__exit__()

    def configuration(self, name):
        return (CONFIGURATIONS / name).read_text(encoding="utf-8")

    def submit(self, mails, connections=4):
        data = [{"sender": mail.sender, "recipients": mail.recipients, "text": mail.text().decode("latin-1")}
                for mail in mails]
        self.room.write("/tmp/mails.json", json.dumps(data))
        self.room.run("python3", "-", "/tmp/mails.json", str(connections), data=SUBMIT.encode())

    def wait_until_delivered(self, timeout=90):
        """Retries now and then: Exim leaves what a long connection brings to its next queue run, and an agent that has
        just seen a delivery fail may not try at once."""
        end = time.monotonic() + timeout
        while self.waiting():
            if time.monotonic() > end:
                raise RoomError(f"{self.name}'s queue is not empty after {timeout} seconds: {self.log()[-2000:]}")
            self.retry()
            pause_end = time.monotonic() + 2
            while self.waiting() and time.monotonic() < pause_end:
                time.sleep(0.05)

    def log(self):
        return re.sub(r"<\d+>(?=[A-Z][a-z]{2} [ \d]\d )", "\n", self.room.read("/var/log/mail.log"))

    def failed_attempts(self):
        return len(re.findall(self.deferred, self.log()))

    def returned(self):
        return [line for line in self.log().splitlines() if re.search(self.returned_to_sender, line)]

    def set_up(self):
        raise NotImplementedError

    def waiting(self):
        """Messages in the agent's queue."""
        raise NotImplementedError

    def retry(self):
        """Tries everything that waits, now."""
        raise NotImplementedError


class Postfix(TransferAgent):
    name = "postfix"
    packages = ("postfix",)
    deferred = r"status=deferred"
    returned_to_sender = r"status=(bounced|expired)|sender non-delivery"

    def set_up(self):
        room = self.room
        room.account("postfix", "/var/spool/postfix")
        room.group("postdrop")
        shared = room.path / "usr/share/postfix"
        shutil.copy(shared / "dynamicmaps.cf", room.path / "etc/postfix/dynamicmaps.cf")
        room.write("/etc/postfix/master.cf", (shared / "master.cf.dist").read_bytes())
        room.write("/etc/postfix/main.cf", (shared / "main.cf.debian").read_bytes())
        # This room's own: no network but loopback, and a minute's wait after a program could not be started made short.
        room.append("/etc/postfix/main.cf", "\nmyhostname = relay.example.net\nmydestination = localhost\n"
                    "alias_maps =\ninet_interfaces = loopback-only\ninet_protocols = ipv4\n"
                    "service_throttle_time = 1s\n\n")
        room.append("/etc/postfix/main.cf", self.configuration("postfix/main.cf"))
        room.append("/etc/postfix/master.cf", "\n" + self.configuration("postfix/master.cf"))
        room.write("/etc/postfix/transport", self.configuration("postfix/transport"))
        room.run("postmap", "/etc/postfix/transport")
        room.run("/usr/lib/postfix/configure-instance.sh", "-")
        room.run("postfix", "set-permissions", check=False)  # complains of the manual pages that Debian moves
        room.run("postfix", "start")

    def waiting(self):
        return len(self.room.run("postqueue", "-j").stdout.splitlines())

    def retry(self):
        self.room.run("postqueue", "-f")


class Exim(TransferAgent):
    """Delivers to the socket of the systemd units, which systemd-socket-activate serves as systemd would."""

    name = "exim"
    packages = ("exim4-daemon-light", "exim4-base", "exim4-config")
    deferred = r" == "
    returned_to_sender = r" \*\* | <= <> R="

    def set_up(self):
        room = self.room
        room.account("Debian-exim", "/var/spool/exim4")
        room.run("install", "-d", "-o", "Debian-exim", "-g", "Debian-exim", "-m", "750", "/var/spool/exim4",
                 "/var/log/exim4")
        # What the package asks when it is installed.
        room.write("/etc/exim4/update-exim4.conf.conf",
                   "dc_eximconfig_configtype='internet'\ndc_other_hostnames='relay.example.net'\n"
                   "dc_local_interfaces='127.0.0.1'\ndc_relay_domains=''\ndc_relay_nets=''\ndc_minimaldns='false'\n"
                   "dc_readhost=''\ndc_smarthost=''\ndc_hide_mailname='false'\ndc_use_split_config='true'\n"
                   "dc_mailname_in_oh='true'\ndc_localdelivery='mail_spool'\nCFILEMODE='644'\n")
        room.write("/etc/exim4/conf.d/main/000_localmacros", "IGNORE_SMTP_LINE_LENGTH_LIMIT = yes\n")
        for name in ("main/000_morvane", "router/150_morvane", "transport/30_morvane"):
            room.write(f"/etc/exim4/conf.d/{name}", self.configuration(f"exim/conf.d/{name}"))
        room.run("update-exim4.conf")
        self.serve_socket()
        room.run("exim4", "-bd", "-q1h")

    def serve_socket(self):
        units = {name: self.configuration(f"systemd/{name}") for name in ("morvane-in.socket", "morvane-in@.service")}
        for name, text in units.items():
            self.room.write(f"/etc/systemd/system/{name}", text)
        found = self.room.run("systemd-analyze", "verify", "--man=no", "/etc/systemd/system/morvane-in.socket")
        if found.stdout or found.stderr:
            raise RoomError(f"systemd-analyze: {(found.stdout + found.stderr).decode()}")
        setting = dict(re.findall(r"^(\w+)=(.*)$", "\n".join(units.values()), re.MULTILINE))
        user = setting["User"]
        self.room.start("systemd-socket-activate", "--accept", "--inetd", f"--listen={setting['ListenStream']}",
                        "setpriv", f"--reuid={user}", f"--regid={user}", "--init-groups", setting["ExecStart"])
        self.room.wait_for(lambda: self.room.listens(GATEWAY_PORT), "the gateway's socket")

    def waiting(self):
        return int(self.room.run("exim4", "-bpc").stdout)

    def retry(self):
        self.room.run("exim4", "-qff")

    def log(self):
        return "".join(self.room.read(f"/var/log/exim4/{name}") for name in ("mainlog", "paniclog"))


class Sendmail(TransferAgent):
    """Starts the gateway itself, one process for each delivery connection, and speaks SMTP to it over a pipe."""

    name = "sendmail"
    packages = ("sendmail-bin", "sendmail-base", "sendmail-cf", "m4")
    says_ehlo = False  # only to a mailer with the flag "a"
    deferred = r"stat=(Deferred|I/O error|.*temporar)|dsn=4"
    returned_to_sender = r"DSN: |dsn=5|postmaster notify"

    # The shortest sendmail.mc of a relay, which works on a busy machine too; the lines that docs/mta.md has one add are
    # FEATURE(`mailertable') and the last.
    MAIN = """\
divert(-1)dnl
define(`_USE_ETC_MAIL_')dnl
include(`/usr/share/sendmail/cf/m4/cf.m4')dnl
OSTYPE(`debian')dnl
DOMAIN(`debian-mta')dnl
FEATURE(`no_default_msa')dnl
DAEMON_OPTIONS(`Family=inet, Name=MTA-v4, Port=smtp, Addr=127.0.0.1')dnl
define(`confQUEUE_LA', `1000')dnl
define(`confREFUSE_LA', `1000')dnl
define(`confSERVICE_SWITCH_FILE', `/etc/mail/service.switch-nodns')dnl
FEATURE(`accept_unresolvable_domains')dnl
FEATURE(`nocanonify')dnl
FEATURE(`mailertable')dnl
MAILER_DEFINITIONS
MAILER(`smtp')dnl
include(`/etc/mail/morvane.m4')dnl
"""

    def set_up(self):
        room = self.room
        room.account("smmta", "/var/lib/sendmail")
        room.account("smmsp", "/var/lib/sendmail")
        room.run("install", "-d", "-o", "smmta", "-g", "smmsp", "-m", "750", "/var/spool/mqueue",
                 "/var/run/sendmail/mta")
        room.write("/etc/mail/sendmail.mc", self.MAIN)
        for name in ("morvane.m4", "mailertable", "relay-domains"):
            room.write(f"/etc/mail/{name}", self.configuration(f"sendmail/{name}"))
        room.run("sh", "-c", "m4 /etc/mail/sendmail.mc >/etc/mail/sendmail.cf")
        makemap = "/usr/libexec/sendmail/makemap"
        room.run("sh", "-c", f"{makemap} hash /etc/mail/mailertable </etc/mail/mailertable")
        room.write("/etc/mail/aliases", "postmaster: root\n")
        room.run(self.SENDMAIL, "-bi")
        room.run(self.SENDMAIL, "-bd", "-q1h")

    SENDMAIL = "/usr/libexec/sendmail/sendmail"

    def waiting(self):
        return len(list((self.room.path / "var/spool/mqueue").glob("[qQ]f*")))

    def retry(self):
        self.room.run(self.SENDMAIL, "-q")
