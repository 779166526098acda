#!/usr/bin/env python3
"""Runs every fboctl command that README.md and docs/ show, and holds its exit status and what it
says against what is expected here. Takes fboctl."""

import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
FBOCTL = pathlib.Path(sys.argv[1])

# How a command begins, its exit status, and what it says. The longest beginning counts.
OUTCOMES = [
    ("--sim ufs40:samsung support", 0, "FBO: supported"),
    ("--sim ufs40:samsung defrag", 0, "1 file, 1 range in 1 zone"),
    ("--sim ufs31:kioxia trigger", 0, "Fragmentation before: "),
    ("--sim ufs40:samsung --trace trigger", 0, "write fbo_send_lr_list"),
    ("--sim ufs40:kioxia eua erase", 0, "Items gone through: 2"),
    ("--sim ufs40:micron wear", 0, "cycles: 120\nEUA: supported"),
    ("--sim ufs40:micron snapshot backup", 0, "The backup is complete"),
    ("--help", 0, "Commands:"),
    ("--sim ufs40:samsung,pace=20,analysis=300,ranges=8 defrag", 0, "Fragmentation before: "),
    ("--sim ufs40:samsung,pace=20,analysis=300 run sh", 0, "stop: sent"),
    ("--sim ufs40:samsung,snapshot=2 snapshot watch", 0, "Watching as process"),
    ("--sim ufs40:micron,wear=2400 support", 1, "the flash is worn: 2400 program/erase cycles"),
    ("--sim ufs40:skhynix-tarno eua support", 1, "policy row (0), device (tarno), vendor (SK"),
    ("--sim ufs40:micron,report=11/4096", 0, "read buff fail, retry"),
    ("--sim ufs31:wdc,optimise=stuck", 1, "1 of 1 zones not measured: for them, 0"),
    ("--sim ufs40:wdc,fault.fbo_send_lr_list=missing", 1, "1 of 1 zones failed"),
    ("--sim ufs40:wdc,node.fbo_prog_state=0/1/x", 3,
     "a node or property that must hold a number holds none"),
    ("--sim 'ufs40:wdc,node.fbo_prog_state=*/*/!EIO/*'", 0, "Fragmentation before: "),
    ("--sim 'ufs40:wdc,store.fbo_send_lr_list=*/!EINVAL/*'", 0, '"1,8\\n" Invalid argument'),
    ("--sim 'ufs40:wdc,node.fbo_prog_state=*/~30:*/*'", 0, "0 s  wait 30"),
    ("--sim 'ufs40:wdc,node.vendor=KIO", 0, "ufs vendor: KIOXIA,/"),
    ("--sim ufs40:wdc,after.fbo_operation_control.2=node.", 1, "1 of 1 zones not measured"),
    ("--sim ufs40:wdc,after.fbo_operation_control.2=fault.", 1, "1 of 1 zones failed"),
    ("--sim ufs40:wdc,after.fbo_operation_control.1=fault.1d84000.ufshc=missing", 3, "escaped"),
    ("--sim ufs40:micron,analysis_end=9/-1 --log", 1, "failed, because the analysis failed"),
    ("--sim ufs31:kioxia exercise fbo", 0, "retries are counted"),
    ("--sim ufs40:kioxia exercise snapshot", 0, "drop event comes"),
    ("--sim ufs40:kioxia,drop=stuck", 1, "wanted: idle"),
    ("--sim ufs40:wdc,@worn,eua=0", 1, "EUA: not supported"),
    ("--sim ufs40:wdc --sim-state flash", 0, "after: 256"),
]


def commands():
    """The commands, each as one line without its comment. Those of a phone, which have no --sim, are
    left out."""
    for document in [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]:
        text = document.read_text().replace("\\\n", "")
        for program, line in re.findall(r"^    (fboctl(?= --)|printf) (.*)$", text, re.MULTILINE):
            yield document.name, program, re.sub(r"\s+#.*$", "", re.sub(r" +", " ", line))


def run(command, home):
    """The exit status and all output; what waits for Ctrl-C gets it at its first line."""
    # On a virtual clock nothing takes time; the reader may have that.
    command = re.sub(r",pace=\d+", "", command).replace("sleep 1", "sleep 0.2")
    environment = {**os.environ, "HOME": home, "PATH": f"{FBOCTL.parent}:{os.environ['PATH']}"}
    process = subprocess.Popen(["sh", "-c", f"exec fboctl {command}"], cwd=home, env=environment,
                               text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    output = ""
    if re.search(r" (watch|serve)$", command):
        output = process.stdout.readline()
        process.send_signal(signal.SIGINT)
    output += process.communicate(timeout=60)[0]
    return process.returncode, output


wrong = []
unused = {outcome[0] for outcome in OUTCOMES}
# A home below the build folder, whose file system tells where files lie.
with tempfile.TemporaryDirectory(dir=".") as home:
    home = pathlib.Path(home).resolve()
    (home / "Pictures").mkdir()
    (home / "Pictures/one").write_bytes(b"x" * 9000)
    os.sync()
    for document, program, command in commands():
        if program == "printf":
            # It writes a file for what comes next.
            subprocess.run(["sh", "-c", f"printf {command}"], cwd=home, check=True)
            continue
        begins, status, says = max(
            (outcome for outcome in OUTCOMES if command.startswith(outcome[0])),
            key=lambda outcome: len(outcome[0]), default=("", 0, "what is expected here"))
        unused.discard(begins)
        found, output = run(command, home)
        if found != status or says not in output:
            wrong.append(f"{document}: fboctl {command}\n  ends with {found} instead of {status}, or"
                         f" does not say \"{says}\":\n{output}")
wrong += [f"No document shows: fboctl {begins}" for begins in sorted(unused)]
sys.exit("\n".join(wrong) or 0)
