#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks docs/ against the sources: the pages list every message, key and
action and no others, each message names the files that print it, and every
complete rules file in the pages loads. Links, file names, commands, tables of
exit codes and JSON fields, and examples are valid.

Usage: docs_test.py SOURCE_FOLDER QUORVANE_PROGRAM
"""
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(sys.argv[1])
MODULES = ("config", "http", "inventory", "logging", "support", "update")
faults = []

# Texts of INFO and DEBUG lines that do not stand in the call itself.
CALM_FIELDS = ("body", "next", "request", "sending", "start", "status",
               "trying")
CALM = {
    "DEBUG  ", "INFO   ", "ERROR  ", " path=", " file=", " size=",
    "] [INFO   ] [logger] === Logger initialised  level=",
    "[%s] [INFO   ] [logger] === Logger shutdown ===\n",
    "Activation task: ", "Reboot task: ", "Normalized chassis name to: ", " (name pattern: ", ", model pattern: ",
    "[RF-TASK] State: ", "  PercentComplete: ", "[RF-TASK] Task ID: ",
    "  Result: Success", "  Result: Exception -- upload retry needed",
    "  Result: Cancelled -- upload restart needed",
    "  Result: Interrupted -- last chunk retry needed",
    "Found perfect chassis info in member: ",
    "Found fallback chassis info in member: ",
}

TOKEN = re.compile(
    r'//[^\n]*|^[ \t]*#[^\n]*'
    r'|(?P<raw>R"(?P<delim>[^(\s]*)\((?P<rawtext>.*?)\)(?P=delim)")'
    r'|"(?P<text>(?:[^"\\\n]|\\.)*)"'
    r"|'(?P<char>[^'\\]|\\.)'(?![0-9])"
    r'|(?P<word>[A-Za-z_]\w*)|(?P<other>\S)', re.M | re.S)


def unescape(text):
    return re.sub(r'\\(u[0-9a-fA-F]{4}|.)', lambda m: {
        "n": "\n", "t": "\t", "r": "\r", "0": "\0"}.get(
            m[1], chr(int(m[1][1:], 16)) if len(m[1]) == 5 else m[1]), text)


def literals(source):
    """(text, calm) of each literal; calm: it is an argument of LogInfo or
    LogDebug, or stands in a field that only they use."""
    words, depth, calm_depth, found = [], 0, None, []
    glued = False  # adjacent literals are one
    for token in TOKEN.finditer(source):
        text = token["rawtext"] if token["raw"] else token["text"]
        if text is not None or token["char"]:
            if text is None:
                text = token["char"]
            text = text if token["raw"] else unescape(text)
            calm = calm_depth is not None or (
                words[-1:] == ["="] and words[-3:-2] == ["."]
                and words[-2] in CALM_FIELDS)
            if glued:
                found[-1] = (found[-1][0] + text, found[-1][1])
            else:
                found.append((text, calm))
            glued = True
            continue
        word = token["word"] or token["other"]
        if word is None:
            continue
        glued = False
        if word == "(":
            depth += 1
            if calm_depth is None and words[-1] in ("LogInfo", "LogDebug"):
                calm_depth = depth
        elif word == ")":
            if calm_depth == depth:
                calm_depth = None
            depth -= 1
        words.append(word)
    return found


def built_of(piece, parts):
    """Whether literals one behind the other make up `piece`."""
    ends = {0}
    for at in range(len(piece)):
        if at in ends:
            ends |= {at + len(p) for p in parts if piece.startswith(p, at)}
    return len(piece) in ends


def check_source(headings, body, parts_of):
    """The named files, all of them and no fewer, hold the headings' text."""
    pieces = [piece for heading in headings
              for piece in re.split(r"<[^>]*>", heading) if piece]

    def unprinted(files):
        parts = set().union(*(parts_of.get(name, ()) for name in files))
        return [piece for piece in pieces if not any(
            built_of(p, parts) for p in (piece, piece + " "))]

    source = re.search(r"^.*\bSource: (.*)$", body, re.M)
    named = source[1].split(", ") if source else []
    for piece in unprinted(named):
        faults.append(f"docs/messages.md: {headings}: the source files "
                      f"{named} do not print {piece!r}")
    for name in named:
        if unprinted(named) == unprinted(set(named) - {name}):
            faults.append(f"docs/messages.md: {headings}: the source file "
                          f"{name} prints no part of it")


def check_messages():
    by_file = {path.relative_to(ROOT).as_posix():
               literals(path.read_text("utf-8")) for directory in MODULES
               for path in sorted((ROOT / directory).glob("*.cc"))}
    found = [entry for entries in by_file.values() for entry in entries]
    parts_of = {name: {text for text, _ in entries if text}
                for name, entries in by_file.items()}
    page = (ROOT / "docs/messages.md").read_text("utf-8")
    sections = [(re.findall(r"`([^`]+)`", line), body) for line, body in
                re.findall(r"^### ([^\n]*)\n(.*?)(?=^##|\Z)", page,
                           re.M | re.S)]
    headings = [text for texts, _ in sections for text in texts]
    # A sentence, or a part of one: two words, or one that a blank joins on.
    documented = {text for text, calm in found
            if not calm and " " in text and re.search(r"[A-Za-z]{3}", text)}
    for text in sorted(documented - CALM):
        if not any(text.strip() in heading for heading in headings):
            faults.append(f"docs/messages.md: no heading has {text!r}")
    for text in sorted(CALM - documented):
        faults.append(f"docs_test.py: CALM text is in no source: {text!r}")
    for heading in headings:
        if headings.count(heading) > 1:
            faults.append(f"docs/messages.md: {heading!r} stands there twice")
    for texts, body in sections:
        if not texts or "\n**Do:** " not in body:
            faults.append(f"docs/messages.md: {texts} does not say what to do")
        check_source(texts, body, parts_of)


def check_rules():
    page = (ROOT / "docs/rules.md").read_text("utf-8")
    parser = (ROOT / "config/parse.cc").read_text("utf-8")
    # `Reader(section, "key", default...`
    keys = dict(re.findall(
        r'\b(?:RequiredObject|ArrayMember|StringOr|IntMember|BoolMember|'
        r'PositiveSeconds|UriList|RuleTable)\(\s*\w+,\s*"(\w+)"'
        r'(?:\)\.value_or\(|,\s*|(?=\)))([^;]*?)\)', parser))
    rows = {m[1]: m[0] for table in
            re.findall(r"^\| key \|.*\n\|[-|]+\n((?:\|.*\n)+)", page, re.M)
            for m in re.finditer(r"^\| `([^`]+)` \|.*$", table, re.M)}
    named = {row.split(".")[-1].split("[")[0] for row in rows}
    for key in keys.keys() - named:
        faults.append(f"docs/rules.md: no row for the key {key}")
    for row in rows:
        key = row.split(".")[-1].split("[")[0]
        if key not in keys:
            faults.append(f"docs/rules.md: {key}: the parser reads no such key")
            continue
        default = keys[key].strip().strip('"')
        documented = rows[row].split("|")[3].strip(' `"')
        if re.fullmatch(r"\d+|true|false|[a-z]+|/\S+", default) \
                and documented != default:
            faults.append(f"docs/rules.md: {row} tells the default "
                          f"{documented}, not {default}")
    actions = (ROOT / "config/actions.h").read_text("utf-8")
    tables = [re.findall(r'return "(\w+)"', switch) for switch in re.findall(
        r"ActionName\(\w+ action\) \{(.*?)^\}", actions, re.M | re.S)]
    documented = [re.findall(r"^\| `(\w+)` \|", table, re.M) for table in
            re.findall(r"^\| action \|.*\n\|[-|]+\n((?:\|.*\n)+)", page, re.M)]
    if tables != documented:
        faults.append(f"docs/rules.md: the action tables hold {documented}, "
                      f"config/actions.h {tables}")
    page = (ROOT / "docs/man/brindle.config.json.5.md").read_text("utf-8")
    named = [set(re.findall(r'"([a-z_]+)"', text)) for text in re.findall(
        r"^\*\*(?:\w+_rules|task_states)\*\*.*\n:(.*)$", page, re.M)]
    if [set(table) for table in tables] != named:
        faults.append(f"brindle.config.json.5.md: the rule tables name the "
                      f"actions {named}, config/actions.h {tables}")


def check_samples():
    with tempfile.TemporaryDirectory() as directory:
        for name in ("docs/guides/write-a-rules-file.md", "docs/rules.md"):
            page = (ROOT / name).read_text("utf-8")
            blocks = [text for kind, text in FENCE.findall(page)
                      if kind == "json"]
            whole = [b for b in blocks if '"firmware_update"' in b
                     and '"authentication"' in b]
            if not whole:
                faults.append(f"{name}: no complete rules file in it")
            for number, block in enumerate(whole, 1):
                sample = pathlib.Path(directory) / "sample.json"
                sample.write_text(block, "utf-8")
                run = subprocess.run(
                    [sys.argv[2], "rules", "check", str(sample)],
                    stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                    check=False)
                if run.returncode != 0:
                    faults.append(f"{name}: rules file {number} has errors:"
                                  f"\n{run.stdout}")


PAGES = [ROOT / name for name in ("README.md", "CONTRIBUTING.md",
                                  "CHANGELOG.md", "ansible/README.md",
                                  "simulator/README.md")]
PAGES += sorted((ROOT / "docs").rglob("*.md"))
# Words after the language are marks for other tests.
FENCE = re.compile(r"^```(\w*)[^\n]*\n(.*?)^```", re.M | re.S)
# Page, heading, source file, part of the source, and the names in that part:
# the first column of the table below the heading lists exactly these names.
TABLES = (
    ("docs/exit-codes.md", "Codes", "tools/quorvane/base/exit_code.h",
     r"enum class ExitCode \{(.*?)\}", r"= (\d+)"),
    ("docs/exit-codes.md", "Outcomes", "tools/quorvane/run/verdict.cc",
     r"NameOf\(Verdict::Outcome(.*?)^\}", r'return "(.+)"'),
    ("docs/json.md", "Result file", "tools/quorvane/commands/result_document.cc",
     r"ResultDocument\((.*?)^\}", r'\{"(\w+)",'),
    ("docs/json.md", "Firmware", "tools/quorvane/run/versions.cc",
     r"FirmwareJson\((.*?)^\}", r'\{"(\w+)",'),
    ("docs/json.md", "Update result", "update/export.cc", r"(.*)",
     r'Add\w+\(root\.get\(\), "(\w+)"'),
    ("docs/json.md", "Inventory", "inventory/export.cc", r"(.*)",
     r'Add\w+\(entry, "(\w+)"'),
    ("docs/json.md", "Chassis", "tools/quorvane/commands/chassis.cc", r"(.*)",
     r'\{"(\w+)", info'),
    ("docs/json.md", "Plan", "tools/quorvane/redfish/plan.cc",
     r"^Json ToJson\(const Plan(.*?)^\}", r'\{"(target|image|phases|firmware|time|findings)"'),
    ("docs/json.md", "Codes of findings",
     "tools/quorvane/redfish/plan_findings.cc", r"(.*)",
     r'FindingRow\{\s*"(\w+)"'),
    ("docs/json.md", "Task", "tools/quorvane/redfish/tasks.cc",
     r"ToJson\(const BmcTask& (.*?)^\}", r'\{"(\w+)", (?:task|NumberJson|messages)'),
    ("docs/json.md", "Report", "tools/quorvane/view/report_text.cc",
     r"RunJson\(const Run& run, (.*?JsonReport\(.*?)^\}", r'(?:\{|json\[)"(\w+)"[],]'),
    ("docs/json.md", "Report on many logs", "tools/quorvane/view/fleet.cc",
     r"FleetJson\((.*?)^\}", r'\{"(\w+)", (?:nlohmann|TotalsJson)'),
    ("docs/json.md", "Run of a machine", "tools/quorvane/view/fleet.cc",
     r"RowJson\((.*?)^\}", r'json\["(\w+)"\]'),
    ("docs/json.md", "Totals", "tools/quorvane/view/fleet.cc",
     r"TotalsJson\((.*?)^\}", r'\{"(\w+)",'),
    ("docs/guides/read-a-report.md", "Columns of the table",
     "tools/quorvane/view/fleet_csv.cc", r"std::string csv\s*=(.*?);", r'"(\w+)"'),
    ("docs/guides/read-a-report.md", "Metrics",
     "tools/quorvane/view/fleet_metrics.cc", r"(.*)", r'"(quorvane_\w+)"'),
    ("docs/json.md", "Fields of an event", "tools/quorvane/run/events.cc",
     r"ToJson\((.*?)^\}", r'(?:\{|json\[|add_text\(|add_number\()"(\w+)"'),
    ("docs/json.md", "Event kinds", "tools/quorvane/run/events.cc",
     r"NameOf\(EventKind kind(.*?)^\}", r'return "(.+)"'),
    ("docs/json.md", "Phases", "tools/quorvane/run/events.cc",
     r"NameOf\(Phase phase(.*?)^\}", r'return "(.+)"'),
    ("docs/guides/read-a-report.md", "Values of RESULT",
     "tools/quorvane/view/report_text.cc", r"SuccessText\((.*?^std::string ResultText\(.*?)^\}",
     r'"([a-z ]+)"'),
    ("simulator/README.md", "Built-in scenarios", "simulator/CMakeLists.txt",
     r"(.*)", r"scenarios/([\w-]+)\.json"),
)


def anchors(page):
    text = FENCE.sub("", page.read_text("utf-8"))
    return {re.sub(r"[^\w -]", "", heading.lower()).replace(" ", "-")
            for heading in re.findall(r"^#+ (.*)$", text, re.M)}


def check_references():
    """Links, anchors and names of source files."""
    directories = "|".join(MODULES + ("ansible", "bench", "cmake", "debian", "docs", "fuzz", "include",
                                  "scripts", "simulator", "tests", "tools"))
    for page in [*PAGES, ROOT / "docs/update-flow.mmd"]:
        text = page.read_text("utf-8")
        for link in re.findall(r"\]\(([^)\s]+)\)", FENCE.sub("", text)):
            if re.match(r"\w+:", link):
                continue
            path, _, anchor = link.partition("#")
            target = page.parent / path if path else page
            if not target.exists() or (
                    anchor and anchor not in anchors(target)):
                faults.append(f"{page}: the link {link} leads nowhere")
        for name in re.findall(rf"(?<![\w/.-])(?:{directories})/[\w./*-]*\w", text):
            if not any(ROOT.glob(name)):
                faults.append(f"{page}: there is no file {name}")
    page = (ROOT / "docs/developing.md").read_text("utf-8")
    for name, path in re.findall(r"`(\w+)`, `(\w+/[\w./]+)` \|$", page,
                                 re.M):
        if name not in (ROOT / path).read_text("utf-8"):
            faults.append(f"docs/developing.md: {path} has no {name}")
    page = (ROOT / "docs/guides/link-the-library.md").read_text("utf-8")
    setup = (ROOT / "scripts/setup.sh").read_text("utf-8")
    for package in re.search(r"build_packages=\((.*?)\)", setup,
                             re.S)[1].split():
        if package not in ("ninja-build", *re.findall(r"[\w+-]+", page)):
            faults.append(f"link-the-library.md: no package {package}")


def check_tables():
    for name, heading, source, part, names in TABLES:
        page = (ROOT / name).read_text("utf-8")
        section = re.search(rf"^##+ {heading}\n(.*?)(?=^#|\Z)", page,
                            re.M | re.S)
        listed = re.findall(r"^\| `([^`]+)` \|", section[1] if section else "",
                            re.M)
        code = re.search(part, (ROOT / source).read_text("utf-8"), re.M | re.S)
        known = set(re.findall(names, code[1])) if code else set()
        if not known or sorted(listed) != sorted(known):
            faults.append(f"{name}, {heading}: lists {listed}, but {source} "
                          f"has {sorted(known)}")


def check_modules():
    page = (ROOT / "docs/developing.md").read_text("utf-8")
    for directory in (*MODULES, "simulator"):
        code = "".join(path.read_text("utf-8") for path in
                       (ROOT / directory).iterdir()
                       if path.suffix in (".cc", ".h"))
        used = set(re.findall(r'#include "(?:quorvane/)?(\w+)[/.]', code))
        used &= set(MODULES) - {directory}
        row = re.search(rf"^\| `{directory}` \|(.*)\|$", page, re.M)
        if not row or set(re.findall(r"`(\w+)`", row[1])) != used:
            faults.append(f"docs/developing.md: {directory} uses {sorted(used)}")


def check_commands():
    """Commands in the pages have only options that exist."""
    known = {}
    for page in PAGES:
        for command, rest in re.findall(
                r"quorvane ((?:rules )?[a-z]+)((?:\\\n|[^\n`])*)",
                page.read_text("utf-8").replace("\\-", "-").replace("**", "")):
            options = re.findall(r"(?<![\w-])--[\w-]+", rest)
            if options and command not in known:
                known[command] = subprocess.run(
                    [sys.argv[2], *command.split(), "--help"], text=True,
                    stdout=subprocess.PIPE, check=True).stdout.split()
            for option in options:
                if option not in known[command]:
                    faults.append(f"{page}: {command} has no {option}")


def check_tool_texts():
    """The messages of the tool name commands and options that exist."""
    def words(*command):
        return subprocess.run([sys.argv[2], *command, "--help"], text=True,
                              stdout=subprocess.PIPE, check=False).stdout
    helps = {name: words(*name.split()) for name in (
        "update", "watch", "plan", "tasks", "task", "rules draft", "restart", "trust", "inventory", "chassis", "rules check", "rules explain",
        "rules schema", "report", "simulate")}
    options = set(re.findall(r"(?<![\w-])--[\w-]+", " ".join(helps.values())))
    # Not options of a command; the last two are rejected with a message.
    options |= {"--", "--version", "--password", "--share-password"}
    for path in [*(ROOT / "tools").rglob("*.cc"), *(ROOT / "simulator").glob("*.cc")]:
        for text, _ in literals(path.read_text("utf-8")):
            for command in re.findall(r"quorvane ((?:rules )?[a-z]+)\b", text):
                if "`quorvane " + command in text and not helps.get(command):
                    faults.append(f"{path}: no command {command}: {text!r}")
            for option in re.findall(r"(?<![\w-])--[a-z][\w-]*", text):
                if option not in options:
                    faults.append(f"{path}: no option {option}: {text!r}")


def check_examples():
    """The programs compile, and the report of the guide is that of its log."""
    for page in PAGES:
        blocks = FENCE.findall(page.read_text("utf-8"))
        for program in (b for kind, b in blocks
                        if kind == "cpp" and "int main" in b):
            run = subprocess.run(
                ["c++", "-std=c++17", "-fsyntax-only", "-Wall", "-Werror",
                 "-I", ROOT / "include", "-x", "c++", "-"], input=program,
                text=True, stderr=subprocess.PIPE, check=False)
            if run.returncode != 0:
                faults.append(f"{page}: a program does not compile:\n"
                              f"{run.stderr}")
        kinds = dict(blocks)
        if "report" not in kinds:
            continue
        with tempfile.NamedTemporaryFile("w", suffix=".log") as log:
            log.write(kinds["log"])
            log.flush()
            report = subprocess.run(
                [sys.argv[2], "report", log.name], text=True,
                stdout=subprocess.PIPE, check=False).stdout
        if report != kinds["report"]:
            faults.append(f"{page}: the report of this log is:\n{report}")


def check_picture():
    source = (ROOT / "docs/update-flow.mmd").read_text("utf-8")
    picture = (ROOT / "docs/update-flow.svg").read_text("utf-8")
    shown = re.sub(r"<style.*?</style>|<[^>]*>|\s+", "", picture)
    labels = re.findall(r'"([^"#]+)"', source[source.index("flowchart TD"):])
    for label in labels:
        for line in label.split("<br/>"):
            if re.sub(r"\s+", "", line) not in shown:
                faults.append(f"docs/update-flow.svg: does not show {line!r}; "
                              "render it again")


check_messages()
check_rules()
check_samples()
check_references()
check_tables()
check_modules()
check_commands()
check_tool_texts()
check_examples()
check_picture()
print("\n".join(faults))
sys.exit(1 if faults else 0)
