#!/usr/bin/env python3
"""Holds the files of service/ against one another, against the interface and against the forms
that init, VINTF and SELinux take. The policy is compiled with what platform.te has of a platform,
and has to allow what the table of docs/integration.md says the service needs. Prints what is
wrong."""

import pathlib
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

ROOT = pathlib.Path(__file__).resolve().parents[2]
SERVICE = ROOT / "service"
POLICY = SERVICE / "sepolicy"
# The options of init's that the service uses, each with the fewest and the most words that follow.
OPTIONS = {"capabilities": (0, 99), "class": (1, 99), "group": (1, 99), "interface": (2, 2),
           "user": (1, 1)}
failures = []


def same(what, found, expected):
    if found != expected:
        failures.append(f"{what}: {found!r} instead of {expected!r}")


def content(path):
    """The lines of a file, without comments and blanks."""
    lines = (re.sub(r"(^|\s)#.*", "", line) for line in path.read_text().splitlines())
    return [line for line in lines if line.strip()]


def check_xml(path, expected):
    """Without comments and what lays it out."""
    try:
        same(path.name, ET.canonicalize(from_file=path, strip_text=True), expected)
    except ET.ParseError as error:
        failures.append(f"{path.name}: {error}")


def check_rc(path, binary, descriptor):
    first, *options = (line.split() for line in content(path))
    same(f"{path.name}, the service", [first[0], first[2:]], ["service", [binary]])
    # The name becomes a part of a property's.
    same(f"{path.name}, the name", re.sub(r"[\w.-]+", "", first[1]), "")
    for option, *words in options:
        fewest, most = OPTIONS.get(option, (1, 0))
        if not fewest <= len(words) <= most:
            failures.append(f"{path.name}: init does not take \"{option} {' '.join(words)}\"")
    same(f"{path.name}, the interface", [words[1:] for words in options if words[0] == "interface"],
         [[descriptor, "default"]])


def run(*command):
    try:
        return subprocess.run(command, capture_output=True, text=True, check=False)
    except FileNotFoundError:
        sys.exit(f"{command[0]} is not installed: nothing is known about the SELinux policy")


def compiled(parts, labels, rule=""):
    """What checkpolicy says of parts of the policy, labels of files and one rule more."""
    sources = [path for part in parts for path in sorted((POLICY / part).glob("*.te"))]
    policy = run("m4", str(ROOT / "tests/contract/platform.te"), *map(str, sources))
    if policy.returncode:
        return policy.stderr
    end = "user u roles r level s0 range s0 - s0:c0;\nsid kernel u:r:init:s0\n"
    with tempfile.NamedTemporaryFile(mode="w", suffix=".conf") as file:
        file.write("\n".join([policy.stdout, rule, end, *labels, ""]))
        file.flush()
        done = run("checkpolicy", "-M", "-o", "/dev/null", file.name)
    return done.stderr if done.returncode else ""


def check_policy():
    labels = {"public": [], "private": [], "vendor": content(POLICY / "vendor/genfs_contexts")}
    # Labels of what is no file system are looked at as if it was one.
    for path in sorted(POLICY.glob("*/*_contexts")):
        for number, line in enumerate(content(path)):
            if path.name != "genfs_contexts":
                labels[path.parent.name] += [f"genfscon {path.stem} /{number} {line.split()[1]}"]
    # Each side of a phone is compiled without the other's own part.
    for parts in (["public", "vendor"], ["public", "private"], ["public", "private", "vendor"]):
        errors = compiled(parts, [label for part in parts for label in labels[part]])
        if errors:
            failures.append(f"SELinux policy, {' and '.join(parts)}:\n{errors}")
            return
    rows = [line.split("|") for line in (ROOT / "docs/integration.md").read_text().splitlines()]
    needs = [(re.findall("`(\\w+)`", row[2]), need) for row in rows if len(row) == 6
             for need in re.findall(r"`(\w+)` ((?:\w+(?:, )?)+)", row[3])]
    same("the needs in docs/integration.md", len(needs) > 15, True)
    for types, (group, permissions) in needs:
        for permission in permissions.split(", "):
            # A need is met if a rule against it is broken.
            denied = f"neverallow hal_fbo_default {types[0]}:{group} {permission};"
            if "violated by allow" not in compiled(["public", "private", "vendor"], [], denied):
                failures.append(f"the policy does not allow {types[0]}:{group} {permission}")


def main():
    descriptor = content(ROOT / "interfaces/current.txt")[-1].split()[1]
    package, version, interface = re.fullmatch(r"(.+)@(.+)::(\w+)", descriptor).groups()
    name = f"{package}@{version}-service"
    build_file = (SERVICE / "Android.bp").read_text()
    for key, value in (("name", f'"{name}"'), ("init_rc", f'["{name}.rc"]'),
                       ("vintf_fragments", f'["{name}.xml"]'), ("srcs", '["main.cpp"]'),
                       ("relative_install_path", '"hw"'), ("vendor", "true")):
        same(f"Android.bp, {key}", re.findall(rf"\b{key}: (.*),", build_file), [value])
    binary = f"/vendor/bin/hw/{name}"
    check_rc(SERVICE / f"{name}.rc", binary, descriptor)
    check_xml(SERVICE / f"{name}.xml",
              f'<manifest type="device" version="1.0"><hal format="hidl"><name>{package}</name>'
              f'<transport>hwbinder</transport><fqname>@{version}::{interface}/default</fqname>'
              '</hal></manifest>')
    check_xml(SERVICE / "framework_compatibility_matrix.xml",
              '<compatibility-matrix type="framework" version="1.0"><hal format="hidl" '
              f'optional="true"><name>{package}</name><version>{version}</version><interface>'
              f'<name>{interface}</name><instance>default</instance></interface></hal>'
              '</compatibility-matrix>')
    same("hwservice_contexts", [line.split()[0] for line in content(
        POLICY / "private/hwservice_contexts")], [f"{package}::{interface}"])
    labels = dict(line.split() for line in content(POLICY / "vendor/file_contexts"))
    same("file_contexts, the label of the binary",
         [label for path, label in labels.items() if re.fullmatch(path, binary)],
         ["u:object_r:hal_fbo_default_exec:s0"])
    check_policy()
    print(*failures, sep="\n", end="\n" * bool(failures))
    return bool(failures)


if __name__ == "__main__":
    sys.exit(main())
