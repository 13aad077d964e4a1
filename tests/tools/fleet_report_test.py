#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Reports on several logs: which files count, what the documents contain, and
that no log gets lost or overwritten.

Usage: fleet_report_test.py QUORVANE_PROGRAM [PROMTOOL]
"""
import csv
import io
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

TOOL, *PROMTOOL = sys.argv[1:]
FORMULA = "=cmd|' /C calc'!A0"
EVIL = 'a"b\\ \x1b[2J\udcff' + FORMULA
DONE = "2024-05-01 13:00:10.000"


def log(bmc, outcome, cause="", hour=13, version="2"):
    """A run of ten seconds; its versions are known if it was successful."""
    after = {"name": FORMULA, "uri": "/b", "version": version}
    texts = [f"Run: update of {bmc}", f"Started: 2024-05-01T{hour}:00:00-0130",
             f"BMC: {bmc}",
             f"Firmware before: {json.dumps({**after, 'version': '1'})}",
             f"Firmware after: {json.dumps(after)}", "Elapsed: 10.000 s",
             "Finished.", f"Outcome: {outcome}. It ended.{cause}", f"Cause: {cause}"]
    return "".join(f"[2024-05-01 {hour:02}:00:00.000] [INFO   ] [tool] {text}\n"
                   for text in texts)


def report(home, *arguments, umask=-1):
    done = subprocess.run([TOOL, "report", *arguments], cwd=home, umask=umask,
                          capture_output=True, text=True, timeout=100,
                          errors="surrogateescape", check=False)
    return done.returncode, done.stdout, done.stderr


def write(path, text):
    path.parent.mkdir(exist_ok=True)
    path.write_text(text, errors="surrogateescape")


def make_logs(home):
    night = home / "night"
    write(night / "1.log", log("192.0.2.1", "updated"))
    # The night before is in the same log; the address has two spellings.
    write(night / "2", log("BMC2:443", "updated", hour=11)
          + log("bmc2", "failed", EVIL, version=EVIL[:2]))
    write(night / "empty.log", "")
    write(night / "image.bin", "x" * 100000 + log("192.0.2.3", "updated"))
    write(night / "notes.txt", "hello\n")
    write(night / "prose.log", "hello\n")
    (night / "lost.log").symlink_to("nowhere")
    write(night / "directory/9.log", log("192.0.2.9", "updated"))
    os.mkfifo(night / "fifo.log")
    write(home / "library.log", re.sub(r"\[tool\].*", "[update] FIRMWARE", log(
        "x", "updated")))


def check_documents(home):
    code, out, err = report(home, "night", "night/1.log", "library.log", "--json",
                            "--csv", "t.csv", "--html", "night.html",
                            "--metrics", "m.prom", umask=0o077)
    assert code == 4, (code, err)
    for name in ("empty.log: it is empty", "lost.log: No such file",
                 "prose.log: it is not a Quorvane log", "Skipped 2 files in night"):
        assert err.count(name) == 1, (name, err)
    assert err.count("\n") == 4, err

    document = json.loads(out)
    verdicts = {one["bmc"]: one["verdict"] for one in document["machines"]}
    assert verdicts == {"192.0.2.1": "updated", "bmc2": "failed",
                        "": "no_update"}, verdicts
    assert [one["start"] for one in document["earlier_runs"]] == [
        "2024-05-01T11:00:00.000-0130"]
    totals = document["totals"]
    del totals["verdicts"]
    assert totals == {"machines": 3, "runs": 4, "successful": 1,
                      "unusable_logs": 3}, totals

    text = (home / "t.csv").read_bytes().decode()
    assert text.count("\r\n") == text.count("\n") == 8, text
    rows = list(csv.DictReader(io.StringIO(text, newline=""), strict=True))
    failed = [row for row in rows if row["verdict"] == "failed"]
    assert len(failed) == 1 and failed[0]["is_last"] == "true", failed
    assert failed[0]["cause"] == "a\"b\\ \\x1b[2J\\xff" + FORMULA, failed
    assert failed[0]["firmware"].startswith("'=cmd"), failed
    assert [row["verdict"] for row in rows].count("unusable_log") == 3, rows

    check_metrics(home / "m.prom")
    page = (home / "night.html").read_text()
    links = re.findall('href="([^"]*)"', page)
    assert len(links) == 4 and "unusable log" in page, links
    for link in links:
        assert "Outcome: " in (home / link).read_text(), link


def check_metrics(file):
    assert file.stat().st_mode & 0o777 == 0o644, oct(file.stat().st_mode)
    text = file.read_text()
    series = dict(re.findall(r"^([^#].*) (\S+)$", text, re.M))
    at = 1714575600 - 1800  # 13:00:00-0130 is 14:30 UTC
    for name, value in {
            'quorvane_update_success{bmc="192.0.2.1"}': 1,
            'quorvane_update_success{bmc="bmc2"}': 0,
            'quorvane_update_outcome{bmc="bmc2",outcome="failed"}': 1,
            'quorvane_update_duration_seconds{bmc="bmc2"}': 10,
            'quorvane_update_start_timestamp_seconds{bmc="bmc2"}': at,
            'quorvane_update_end_timestamp_seconds{bmc="bmc2"}': at + 10,
            'quorvane_update_last_success_timestamp_seconds{bmc="bmc2"}':
                at + 10 - 7200,
            f'quorvane_update_firmware_info{{bmc="bmc2",uri="/b",name="{FORMULA}'
            '",before="1",after="a\\""}': 1,
            "quorvane_report_unusable_logs": 4}.items():
        assert float(series.get(name, "nan")) == value, (name, value, text)
    for tool in PROMTOOL:
        checked = subprocess.run([tool, "check", "metrics"], input=text,
                                 capture_output=True, text=True, check=False)
        assert checked.returncode == 0 and not checked.stderr, checked


# Arguments, exit code, and what standard output or error contains.
CASES = [
    (["night"], 4, "2 machines, 3 runs, 3 unusable logs\n"),
    (["night"], 4, "\n  Cause: a\"b\\ \\x1b[2J\\xff="),
    (["night/directory"], 0, "1 machine, 1 run\n"),
    (["night/directory/9.log"], 0, "Outcome: updated (192.0.2.9)"),
    (["night/directory/9.log", "--csv", "-"], 0, '"192.0.2.9","updated","0","2024'),
    (["night/1.log", "missing.log"], 4, "Cannot read the log missing.log"),
    (["night/empty.log", "night/prose.log"], 2, "no run was found"),
    (["missing.log"], 2, "Cannot read the log missing.log"),
    (["night", "--csv", "-", "--json"], 2, "both --json and --csv"),
    (["night", "--csv", "same", "--metrics", "./same"], 2, "--metrics would write"),
    (["night", "--csv", "night/2"], 2, "for LOG: --csv would write"),
    (["night/directory", "--html", "none/x.html"], 2, "Cannot write none/x.html"),
    (["night/directory", "--html", "file.html"], 2, "directory file-runs"),
    (["night/directory", "--html", "link.html"], 2, "directory link-runs"),
    (["night", "--metrics", "/dev/null", "--csv", "/dev/null"], 4, "Table: /dev/null"),
]


def check_cases(home):
    write(home / "file-runs", "mine")
    (home / "link-runs").symlink_to("night")
    before = {path: path.read_bytes() for path in home.glob("night/[12]*")}
    for arguments, expected, text in CASES:
        code, out, err = report(home, *arguments)
        assert code == expected and text in out + err, (arguments, code, out, err)
        assert "\x1b" not in out + err, arguments
    # A page that has the name of a log does not replace it.
    page = next((home / "night-runs").glob("192.0.2.1*"))
    page.write_text(log("192.0.2.1", "updated"))
    code, _, err = report(home, "night-runs", page, "--html", "night.html")
    assert code == 2 and "it is a log" in err, (code, err)
    assert page.read_text() == log("192.0.2.1", "updated")
    assert before == {path: path.read_bytes() for path in before}
    assert not (home / "same").exists() and not list(home.glob("*.??????"))


with tempfile.TemporaryDirectory(prefix="fleet-report-") as directory:
    make_logs(pathlib.Path(directory))
    check_documents(pathlib.Path(directory))
    check_cases(pathlib.Path(directory))
