#!/usr/bin/env python3
"""Installs the build into a scratch folder, and looks at what is there.

  files          the reviewed list of files (installed_files.txt) and nothing else
  settings       the sample is read by the installed programs and changes nothing; one that is there
                 is kept
  manual-pages   every program has one, and all of them are formatted without a warning
"""
import argparse
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
PREFIX = pathlib.PurePosixPath("/opt/kor")


def fail(message):
    sys.exit(f"check_installation: {message}")


def run(command, **options):
    return subprocess.run([str(part) for part in command], capture_output=True, text=True,
                          timeout=60, check=False, **options)


def install(options, folder):
    """Installs below folder as a packager does; the folder that stands for the prefix."""
    result = run([options.cmake, "--install", options.build, "--prefix", PREFIX],
                 env={**os.environ, "DESTDIR": str(folder)})
    if result.returncode != 0:
        fail(f"cmake --install failed:\n{result.stdout}{result.stderr}")
    return folder / PREFIX.relative_to("/")


def wanted_files(options, prefix):
    # An absolute folder counts from the root, as everywhere in GNUInstallDirs.
    places = {"libdir": options.libdir, "sysconfdir": options.sysconfdir,
              "server": re.sub(r"/[^/]+-linux-gnu[^/]*$", "", options.libdir) + "/xorg/modules"}
    for line in (HERE / "installed_files.txt").read_text(encoding="utf-8").splitlines():
        if line and not line.startswith("#"):
            yield str(prefix / line.format(**places))


def check_files(options, folder):
    prefix = pathlib.PurePosixPath("/") / install(options, folder).relative_to(folder)
    there = {"/" + str(path.relative_to(folder)) for path in folder.rglob("*") if not path.is_dir()}
    wanted = set(wanted_files(options, prefix))
    if there != wanted:
        fail("installed, and not in installed_files.txt: " + ", ".join(sorted(there - wanted))
             + "; missing: " + ", ".join(sorted(wanted - there)))
    print(f"{len(wanted)} files, as listed")


def sample_of(options, folder, prefix):
    return (folder / str(options.sysconfdir).lstrip("/") if os.path.isabs(options.sysconfdir)
            else prefix / options.sysconfdir) / "kor/kor-gl.conf"


def check_settings(options, folder):
    prefix = install(options, folder)
    sample = sample_of(options, folder, prefix)
    environment = {"PATH": os.environ["PATH"], "HOME": str(folder),
                   "KOR_GL_USER_CONFDIR": str(sample.parent)}

    def report():
        result = run([prefix / "bin/kordoctor", "--json"], env=environment, cwd=folder)
        try:
            checks = {check["id"]: check for check in json.loads(result.stdout)["checks"]}
        except ValueError:
            fail(f"kordoctor printed no report:\n{result.stdout}{result.stderr}")
        if checks["settings-files"]["status"] != "ok":
            fail(f"the sample cannot be read: {checks['settings-files']['result']}")
        return {key: check["result"] for key, check in checks.items() if key.startswith("setting.")}

    with_sample = report()
    text = sample.read_text(encoding="utf-8")
    sample.unlink()
    without = report()
    changed = {key for key in with_sample.keys() | without.keys()
               if with_sample.get(key) != without.get(key)}
    # What an installation sets, since real systems want it; the rest of the sample is comments.
    if not with_sample or changed != {"setting.copyback-strategy",
                                      "setting.free-drawables-without-context"}:
        fail(f"the sample changes settings: {changed}")

    # It is really read: what is uncommented in it counts.
    changed = text.replace("#copyback-frame-rate = 30\n", "copyback-frame-rate = 12\n")
    sample.write_text(changed, encoding="utf-8")
    if not report()["setting.copyback-frame-rate"].startswith("12"):
        fail("a setting that is uncommented in the sample has no effect: "
             + report()["setting.copyback-frame-rate"])

    install(options, folder)
    if sample.read_text(encoding="utf-8") != changed:
        fail("a second installation has overwritten the settings")
    print(f"{len(without)} settings, all at their defaults; changes are kept")


def check_manual_pages(options, folder):
    prefix = install(options, folder)
    manual = prefix / "share/man"
    missing = [program.name for program in sorted((prefix / "bin").iterdir())
               if not (manual / f"man1/{program.name}.1").exists()]
    if missing or not (manual / "man5/kor-gl.conf.5").exists():
        fail(f"no manual page for {', '.join(missing) or 'kor-gl.conf'}")
    pages = sorted(manual.rglob("*.[1-8]"))
    complaints = ""
    for page in pages:
        # As Debian's checker calls it: a line that cannot be broken at 80 columns is a warning, too.
        result = run(["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", page],
                     env={"PATH": os.environ["PATH"], "LC_ALL": "C.UTF-8", "MANROFFSEQ": "",
                          "MANWIDTH": "80", "HOME": str(folder)})
        if result.returncode != 0 or result.stderr or not result.stdout:
            complaints += f"{page.name}: status {result.returncode}: {result.stderr}\n"
        refers = set(re.findall(r"^\.BR ((?:kor|Xkor)\S*) \((\d)\)", page.read_text("utf-8"), re.M))
        for name, section in refers:
            name = name.replace("\\-", "-")
            if not (manual / f"man{section}/{name}.{section}").exists():
                complaints += f"{page.name} refers to {name}({section}), which is not there\n"
    if complaints:
        fail(complaints)
    print(f"{len(pages)} pages, no warning")


def main():
    checks = {"files": check_files, "settings": check_settings, "manual-pages": check_manual_pages}
    arguments = argparse.ArgumentParser(description=__doc__,
                                        formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("what", choices=checks)
    arguments.add_argument("--cmake", required=True)
    arguments.add_argument("--build", required=True, type=pathlib.Path)
    arguments.add_argument("--libdir", required=True)
    arguments.add_argument("--sysconfdir", required=True)
    options = arguments.parse_args()
    with tempfile.TemporaryDirectory(prefix="kor-installation-") as folder:
        checks[options.what](options, pathlib.Path(folder))


if __name__ == "__main__":
    main()
