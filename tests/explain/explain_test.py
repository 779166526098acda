#!/usr/bin/env python3
"""Has fboctl explain logs that simulated phones have written, whole and spoilt. Takes fboctl; with
"page" after it, looks at the page in a browser instead, and ends with 77 if there is none."""

import json
import os
import pathlib
import random
import re
import shutil
import subprocess
import sys
import time

FBOCTL = sys.argv[1]
GUIDE = pathlib.Path(__file__).resolve().parents[2] / "docs/integration.md"


def fboctl(arguments, text="", statuses=(0,)):
    done = subprocess.run([FBOCTL, *arguments], input=text.encode("latin-1"),
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    assert done.returncode in statuses, (arguments, done)
    return done.stdout.decode()


def explain(lines, *statuses):
    """The events, without what a form may not tell."""
    told = json.loads(fboctl(["explain", "--json"], "\n".join(lines), statuses))
    for part in [part for e in told["events"] for part in [e, *e.get("zones", [])]]:
        for key in ("time", "seconds_since", "process", "thread", "seconds"):
            part.pop(key, None)
    return told["events"]


def causes(event):
    return {problem["cause"]: problem["times"] for problem in event.get("problems", [])}


def log_of(device, *commands):
    """What the service logs at commands of fboctl, each line as its priority and its text."""
    # The worker that tells of the start has a thread of its own, and may be late.
    script = "until grep -q 'Creating Memory uevent worker' $NIVORA_FBO_PHONE/log; do :; done; "
    script += "; ".join(f"{FBOCTL} {command} >&2" for command in commands)
    shown = fboctl(["--sim", device, "run", "sh", "-c", script + "; cat $NIVORA_FBO_PHONE/log"])
    lines = [re.match(r"(?:\S+ +){4}(.) mem_fbo ?: (.*)", line) for line in shown.splitlines()]
    return [line.groups() for line in lines if line]


def threadtime(lines, thread=1240):
    return [f"07-01 03:{i // 60:02}:{i % 60:02}.120  1234  {thread} {priority} mem_fbo : {text}"
            for i, (priority, text) in enumerate(lines)]


# What stands for P, TEXT and SECONDS.
FORMS = ["P/mem_fbo ( 1234): TEXT", "P/mem_fbo ( root: 1234): TEXT", "P( 1234) TEXT  (mem_fbo)",
         "P/mem_fbo : TEXT", "TEXT", "SECONDS s  P mem_fbo: TEXT",
         "07-01 03:12:SECONDS.120 P/mem_fbo ( 1234): TEXT\r",
         "     17828743SECONDS.120  1234  1240 P mem_fbo : TEXT", "P mem_fbo: TEXT",
         "    SECONDS.345 P/mem_fbo ( 1234): TEXT",
         "[ 07-01 03:12:SECONDS.120  root: 1234: 1240 P/mem_fbo  ]\nTEXT\n",
         "\x1b[38;5;40m07-01 03:12:SECONDS.120  1234  1240 P mem_fbo : TEXT\x1b[0m",
         "2026-07-01 03:12:SECONDS.120456 +0200  1000  1234  1240 P mem_fbo : TEXT"]
OTHERS = ["--------- beginning of main", "D/other   (  77): FBO_trigger",
          "07-01 03:12:44.120   900   901 I mem_fbo2: FBO_trigger:1: [FBO-HAL] lba is: 1,2 ."]


def test_every_form_tells_the_same_and_what_the_service_answers():
    request = "8,8,64,8,100,8,200,8,300,8,320,8"
    for device in ("ufs40:samsung,ranges=2,analysis_end=9/9/-1",
                   "ufs31:kioxia,ranges=2,optimise_end=9/-1"):
        answer = json.loads(fboctl(["--sim", device, "--json", "trigger", request], "", (1,)))
        lines = log_of(device, "trigger " + request)
        start, run = explain(threadtime(lines), 1)
        assert start == {"kind": "service started", "ok": True} and run["zone_count"] == 3, run
        for key in ("failed_zones", "unmeasured_zones"):
            assert run[key] == answer[key], (run, answer)
        assert sum(causes(run).values()) == run["failed_zones"] + run["unmeasured_zones"], run
        assert {key: run[key] for key in ("before", "after")} == answer["measured"], run
        for form in FORMS:
            shown = [form.replace("P", p, 1).replace("SECONDS", "59").replace("TEXT", text)
                     for p, text in lines]
            if form == "P mem_fbo: TEXT":
                shown = [re.sub("^. mem_fbo: : ", ": ", line) for line in shown]
            shown.insert(len(shown) // 2, "\n".join(OTHERS))
            assert explain(shown, 1) == [start, run], (form, shown)
        text = fboctl(["explain"], "\n".join(threadtime(lines)), (1,))
        begins = [i for i, (_, line) in enumerate(lines) if "] lba is" in line]
        took = f"took {begins[1] - begins[0] - 1}.0 s"
        assert re.search(f"\n    zone 1: 8,8,64,8, .*, {took}\n", text), (took, text)
        assert "07-01 03:00:01.120, run, process 1234, thread 1240, zones: 3," in text, text
        assert re.search(r"\n07-01, runs: 1, zones: 3, .*\n    wrong", text), text


def test_times():
    for stamp, seconds in (("2026-07-01 03:12:44.500", 1782875564.5), ("  12.500", 12.5),
                           ("1782875564.500", 1782875564.5),
                           ("2026-07-01 05:12:44.500000 +0200", 1782875564.5),
                           ("07-01 03:12:44.500 -0030", 962422964.5)):
        line = f"{stamp} E/mem_fbo ( 12): UEventWorker:29: [SNAPSHOT-HAL] epoll_create failed"
        event = json.loads(fboctl(["explain", "--json"], line, (1,)))["events"][0]
        assert (event["time"], event["seconds_since"]) == (stamp.strip(), seconds), event


def test_other_calls():
    lines = log_of("ufs40:wdc,snapshot=2", "eua erase 1,8:9,8", "snapshot drop", "snapshot drop",
                   "snapshot backup", "snapshot event", "snapshot event", "--raw trigger 1")
    # Once each: on a busy machine an event is sent again.
    told = list(dict.fromkeys((e["kind"], str(e.get("result", e.get("sent")))[:7], e["ok"])
                              for e in explain(threadtime(lines), 1)[1:]))
    assert told == [("erase", "2", True), ("drop", "done", True), ("drop", "Nothing", True),
                    ("backup", told[3][1], told[3][2]), ("drop event", "Dropped", True),
                    ("drop event", "Less th", True), ("run", "None", False)], told


def test_causes():
    """A device, a command that fails there, and why; after what has been asked before."""
    for device, command, *expected in (
            ("ufs40:micron,mapping_end=9", "trigger 1,2", "the linear mapping failed"),
            ("ufs40:wdc,fault.fbo_max_lrc=missing", "--raw trigger 12",
             "the range limit cannot be read"),
            ("ufs31:wdc,fault.fbs_flc_ops=missing", "trigger 1,2", "a node is missing or denied"),
            ("ufs31:wdc,accept=stuck", "trigger 1,2", "the list is not accepted"),
            ("ufs31:wdc,node.fbs_flc_ops=7", "trigger 1,2", "the device does not become idle"),
            ("ufs31:wdc,analysis=stuck", "trigger 1,2", "the analysis failed"),
            ("ufs40:wdc,report=20", "trigger 1,2", "the report is missing or short"),
            ("ufs40:wdc,optimise=0,optimise_end=255", "trigger 1,2", "the optimisation failed"),
            ("ufs40:wdc,fault.eua_file_lba_unmap=missing", "eua erase 1",
             "a node is missing or denied"),
            ("ufs40:wdc,snapshot=2,drop_end=6", "snapshot drop", "the snapshot was not dropped"),
            ("ufs40:wdc,snapshot=2,drop_end=6", "snapshot event", "the snapshot was not dropped"),
            ("ufs40:wdc,prop.vendor.snapshot_control=false", "snapshot backup",
             "snapshots are switched off"),
            ("ufs40:wdc,backup_end=6", "snapshot backup", "it did not end well"),
            ("ufs40:wdc,fault.drop_caches=missing", "snapshot backup",
             "the page cache cannot be dropped"),
            ("ufs40:wdc,fault.ufshcd-qcom=missing", "support", "no controller is found"),
            ("ufs40:wdc,node.vendor=NOBODY,report=11/4096", "trigger 1,2,9,2")):
        call = explain(threadtime(log_of(device, command)), *([1] if expected else [0]))[-1]
        assert list(causes(call)) == expected, (device, command, call)
    assert (call["before"], call["after"], call["zones"][0]["retries"]) == (2560, 256, 1), call


def test_lost_cut_and_interleaved_lines():
    many = ",".join(str(i) for i in range(100000, 100800))
    lines = log_of("ufs40:micron,analysis_end=9/-1", "trigger " + many)
    assert max(len(text) for _, text in lines) == 1023
    run = explain(threadtime(lines), 1)[1]
    assert (run["zone_count"], causes(run)) == (4, {"the analysis failed": 1}), run
    shown = threadtime(log_of("ufs40:micron,ranges=1", "trigger 1,8,64,8"))
    late = explain([*shown[1:9], shown[0], *shown[9:]], 0)
    assert [event["kind"] for event in late] == ["run"], late
    shown = shown[1:]
    other = [line.replace(" 1240 ", " 77 ") for line in shown]
    assert len(explain([line for pair in zip(shown, other) for line in pair], 0)) == 2
    for lost in range(1, next(i for i, line in enumerate(shown) if "cmd fail times" in line)):
        assert "its begin is missing" in causes(*explain(shown[lost:], 1)), lost
        assert "lines are missing" in causes(*explain(shown[:lost], 1)), lost
    second = [i for i, line in enumerate(shown) if "] lba is" in line][1]
    stop = threadtime([("D", "FBO_trigger:1: [FBO-HAL] hal stop.")])
    assert causes(*explain(shown[:second] + stop, 1)) == {"it was stopped": 1}


def test_deaths():
    lines = threadtime(log_of("ufs40:samsung", "trigger 8,8,64,8"))
    libc = "07-01 03:12:44.120  %d  1241 F libc  : terminating with uncaught exception of \x07"
    tombstone = "F/DEBUG   : >>> /vendor/bin/hw/%s <<<\nF/DEBUG   : Abort message: 'terminating'"
    init = "[   12.3] init: Service 'vendor.%s' (pid 1234) received signal 6"
    for row, dies in ((libc % 1234, True), (libc % 4321, False),
                      (tombstone % "vendor.nivora.hardware.fbo@1.0-service", True),
                      (tombstone % "other", False), (init % "nivora.fbo-1-0", True),
                      (init % "other", False), ("terminate called after throwing", True)):
        for restart in [], [lines[0].replace("1234", "1300")]:
            told = explain(lines[:20] + [row] + restart, 1)
            errors = [error for event in told for error in event.get("errors", [])]
            assert len(errors) == dies and all(map(str.isprintable, errors)), (row, told)
            cut = "the service died in it" if dies or restart else "lines are missing"
            assert causes(told[1]) == {cut: 1}, (row, told)
            assert (told[-1]["kind"] == "service started again") == bool(restart), told


def test_any_bytes_in_bounded_memory():
    seed = time.time_ns()
    print("seed", seed)
    rng = random.Random(seed)
    text = "\n".join(threadtime(log_of("ufs40:micron", "trigger 1,8,64,8", "snapshot backup")))
    for _ in range(60):
        spoilt = bytearray(text.encode())
        for _ in range(rng.randrange(200)):
            at = rng.randrange(len(spoilt))
            spoilt[at:at + rng.randrange(40)] = rng.randbytes(rng.randrange(4))
        explain([spoilt.decode("latin-1")], 0, 1)
    explain([rng.randbytes(300000).decode("latin-1")], 1)

    def most_memory(chunk, size):
        """In KiB."""
        program = subprocess.Popen([FBOCTL, "explain"], stdin=subprocess.PIPE,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        program.stdin.write(chunk * (size // len(chunk)))
        status = pathlib.Path(f"/proc/{program.pid}/status").read_text()
        program.communicate()
        return int(re.search(r"VmHWM:\s+(\d+)", status)[1])
    begin = threadtime([("I", "FBO_trigger:1: [FBO-HAL] lba is: 1,2 .")], 0)[0]
    threads = "".join(begin.replace(" 0 I", f" {thread} I") + "\n" for thread in range(50000))
    if "ASAN_OPTIONS" in os.environ:
        print("Memory is not measured: a sanitizer takes its own.")
        return
    # More than a pipe holds, so that it has been read when the memory is looked at.
    little = most_memory(b"x\n", 400000)
    for chunk in text.encode() + b"\n", b"x" * 4096, threads.encode():
        grown = most_memory(chunk, 8000000) - little
        assert grown < 4000, (grown, chunk[:50])


def test_usage_and_the_tables_of_the_guide():
    for arguments in ["nowhere"], ["/"], ["-", "--html", "/nowhere/x"]:
        fboctl(["explain", *arguments], "", (2,))
    assert fboctl(["explain", "--json", "nowhere"], "", (2,)) == ""
    broken = json.loads(fboctl(["explain", "--json", "/"], "", (2,)))
    assert broken == {"events": [], "error": "/: Is a directory"}, broken
    assert fboctl(["explain"], "I/other: x\n", (1,)).strip() == ""
    assert GUIDE.read_text().endswith(fboctl(["explain", "--table"])), "see explain --table"


def test_page_takes_its_place_when_it_is_whole():
    text = "\n".join(threadtime(log_of("ufs40:wdc", "trigger 1,8")))
    log, page, link = (pathlib.Path("explain_" + name) for name in ("log", "page", "link"))
    log.write_text(text)
    fboctl(["explain", "--html", str(log), str(log)], "", (2,))
    assert log.read_text() == text
    page.write_text("old")
    page.chmod(0o640)
    for left in link, pathlib.Path("explain_page.new"):
        left.unlink(missing_ok=True)
    link.symlink_to(page)
    for source, status in ("nowhere", 2), ("/", 2), ("/dev/null", 1), (str(log), 0):
        assert page.read_text() == "old"
        fboctl(["explain", "--html", str(link), source], "", (status,))
        assert not pathlib.Path("explain_page.new").exists()
    assert link.is_symlink() and page.read_text().endswith("</html>\n")
    assert page.stat().st_mode & 0o777 == 0o640
    # What is no file is written at once; what does not fit is no success.
    fboctl(["explain", "--html", "/dev/full", str(log)], "", (1,))
    assert pathlib.Path("/dev/full").is_char_device()


def look_at_page():
    browser = shutil.which("chromium") or shutil.which("google-chrome")
    if browser is None:
        print("SKIPPED: there is no browser (Debian's chromium); the page was not looked at")
        sys.exit(77)
    lines = log_of("ufs40:samsung,ranges=2,analysis_end=9/9/-1",
                   "trigger 8,8,64,8,100,8,200,8,300,8,320,8", "trigger 9,8")
    shown = [*threadtime(lines), "terminate called </script>"]
    fboctl(["explain", "--html", "page.html"], "\n".join(shown), (1,))
    done = subprocess.run([browser, "--headless", "--no-sandbox", "--disable-gpu", "--dump-dom",
                           "--enable-logging=stderr", pathlib.Path("page.html").resolve().as_uri()],
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=True)
    assert "CONSOLE" not in done.stderr, done.stderr
    drawn = re.findall('<circle class="([a-z]+)"', done.stdout)
    assert sorted(drawn) == 2 * ["after"] + 2 * ["before"] + 4 * ["seconds"], drawn
    assert re.search(r'<svg id="causes".*>the analysis failed<.*</svg>', done.stdout), done.stdout
    assert not re.search("(NaN|undefined|Infinity)[\"<]", done.stdout), done.stdout


if sys.argv[2:] == ["page"]:
    look_at_page()
else:
    for test in [test for name, test in globals().items() if name.startswith("test_")]:
        test()
