#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Puts an SPDX licence identifier at the head of the tracked source files of this repository:
#   - every .h and .cpp under vpn/, tools/, tests/, fuzz/ and bench/: a first line
#     "// SPDX-License-Identifier: Apache-2.0";
#   - shell scripts (a #! line naming sh or bash) and CMake files (CMakeLists.txt, *.cmake,
#     *.cmake.in) that open with a comment block: "# SPDX-License-Identifier: Apache-2.0" after
#     the #! line, or as the first line;
#   - Python files that open with a comment block after their #! and coding lines: the same
#     line, Apache-2.0, except under integrations/ansible/, which is GPL-3.0-or-later (see
#     debian/copyright) and gets the collections' usual notice line first, "# GNU General
#     Public License v3.0+ (see LICENSE or https://www.gnu.org/licenses/gpl-3.0.txt)", in place
#     of a notice of the same licence it has already.
# Shell scripts and CMake files under integrations/ansible/ take GPL-3.0-or-later as well.
# A file with an SPDX identifier line ("// SPDX-License-Identifier: ..." or "# SPDX-...") among
# its first five lines is left as it is, so a second run changes nothing. Files without a header comment (other than C++) are left alone.
#   spdx-headers.sh [--dry-run]    --dry-run: only list the files that would change
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dry_run=0
case "${1:-}" in
    "") ;;
    --dry-run) dry_run=1 ;;
    *)
        echo "usage: spdx-headers.sh [--dry-run]" >&2
        exit 64
        ;;
esac

cd "$root"
# One command up to the exit: bash has read all of it before the script, a tracked shell
# script itself, gets its identifier line.
git ls-files -z | DRY_RUN=$dry_run /usr/bin/python3 -c '
import os
import re
import sys

CPP_DIRS = ("vpn/", "tools/", "tests/", "fuzz/", "bench/")
GPL_DIR = "integrations/ansible/"
GPL_NOTICE = ("# GNU General Public License v3.0+ "
              "(see LICENSE or https://www.gnu.org/licenses/gpl-3.0.txt)\n")
SHELL_SHEBANG = re.compile(r"^#!\s*(/usr/bin/env\s+)?(/usr)?(/bin/)?(ba)?sh\b")
CODING = re.compile(r"^#.*coding[:=]")
SPDX_LINE = re.compile(r"^(//|#) ?SPDX-License-Identifier:")


def licence(path):
    return "GPL-3.0-or-later" if path.startswith(GPL_DIR) else "Apache-2.0"


def kind(path, lines):
    name = os.path.basename(path)
    if path.endswith((".h", ".cpp")) and path.startswith(CPP_DIRS):
        return "c++"
    if name == "CMakeLists.txt" or name.endswith((".cmake", ".cmake.in")):
        return "cmake"
    if path.endswith(".py"):
        return "python"
    if lines and SHELL_SHEBANG.match(lines[0]):
        return "shell"
    return None


def with_header(path, lines):
    """The new lines of the file, or None when it is to stay as it is."""
    what = kind(path, lines)
    if what is None or any(SPDX_LINE.match(line) for line in lines[:5]):
        return None
    spdx = "SPDX-License-Identifier: " + licence(path) + "\n"
    if what == "c++":
        return ["// " + spdx] + lines
    # The #! line, and for Python a coding line, stay first.
    head = 0
    if lines and lines[0].startswith("#!"):
        head = 1
    if what == "python" and head < len(lines) and CODING.match(lines[head]):
        head += 1
    if head >= len(lines) or not lines[head].startswith("#") or lines[head].startswith("#!"):
        return None  # no header comment today
    insert = ["# " + spdx]
    rest = lines[head:]
    if what == "python" and licence(path) != "Apache-2.0":
        if rest[0].startswith("# GNU General Public License v3.0+"):
            rest = rest[1:]
        insert = [GPL_NOTICE] + insert
    return lines[:head] + insert + rest


dry_run = os.environ.get("DRY_RUN") == "1"
changed = 0
for path in sys.stdin.buffer.read().decode().split("\0"):
    if not path or not os.path.isfile(path) or os.path.islink(path):
        continue
    with open(path, encoding="utf-8", newline="") as source:
        try:
            lines = source.read().splitlines(keepends=True)
        except UnicodeDecodeError:
            continue
    new = with_header(path, lines)
    if new is None:
        continue
    changed += 1
    print(path)
    if not dry_run:
        with open(path, "w", encoding="utf-8", newline="") as target:
            target.writelines(new)
print("spdx-headers: %d files %s" % (changed, "would change" if dry_run else "changed"),
      file=sys.stderr)
'; exit
