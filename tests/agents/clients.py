"""Command-line agents: each sends one mail and tells what was wrong with the dialogue, if anything."""

import subprocess

TIMEOUT = 60


def run(command, data=b"", home=None):
    return subprocess.run(command, input=data, capture_output=True, timeout=TIMEOUT, check=False,
                          env=home.environment() if home else None)


def told(command, done):
    text = (done.stdout + done.stderr).decode(errors="replace")
    return f"{command[0]}: exit {done.returncode}: {text[-2000:]}"


def swaks(home, mail, *options, sender=None, recipients=None):
    """Starts the gateway itself and speaks to it over pipes; what the agent saw, and the faults."""
    letter = home.path / "tmp-letter"
    letter.write_bytes(mail.text(b"\n").removesuffix(b"\n"))  # it adds the last line end itself
    if not mail.body:  # and gives a mail without a body an empty line, unless it must send what is there
        letter.write_bytes(mail.text() + b".")
        options = (*options, "--no-data-fixup")
    command = ["swaks", "--pipe", str(home.program), "--from", sender or mail.sender or "<>", "--to",
               recipients or ",".join(mail.recipients), "--data", f"@{letter}", *options]
    done = run(command, home=home)
    letter.unlink()
    return done.stdout.decode(errors="replace"), [] if done.returncode == 0 else [told(command, done)]


def msmtp(port, mail):
    command = ["msmtp", "--host=127.0.0.1", f"--port={port}", f"--from={mail.sender or '<>'}", "--auth=off",
               "--tls=off", "--domain=client.example.com", "--", *mail.recipients]
    done = run(command, mail.text(b"\n"))
    return [] if done.returncode == 0 else [told(command, done)]


def curl(port, mail):
    recipients = [option for address in mail.recipients for option in ("--mail-rcpt", address)]
    command = ["curl", "--silent", "--show-error", "--crlf", "--url", f"smtp://127.0.0.1:{port}/client.example.com",
               "--mail-from", mail.sender, *recipients, "--upload-file", "-"]
    done = run(command, mail.text(b"\n"))
    return [] if done.returncode == 0 else [told(command, done)]
