"""What commands and code spans of the documents name, and whether there is such a thing."""
import functools
import glob
import os
import re
import shlex
import subprocess

OWN_PROGRAM = r"(scripts/|build/bin/|kestrin |kestrin-vreader( |$)|cmake )"


class Names:
    def __init__(self, sources, binaries):
        self.sources = sources
        self.binaries = binaries
        self.seen = 0

    def path(self, name):
        return os.path.join(self.sources, name)

    def text(self, name):
        with open(self.path(name), encoding="utf-8") as file:
            return file.read()

    def wrong_in(self, text):
        """What a text names that there is not, in words. Texts that name nothing are right."""
        if re.match(OWN_PROGRAM, text):
            return list(self._wrong_in_command(text))
        return list(self._wrong_path(text))

    def _wrong_path(self, text):
        """A file or folder of this project; one with a word in capitals stands for many."""
        if (os.path.isdir(self.path(text.split("/")[0])) and not text.startswith("build") and
                re.fullmatch(r"[\w.-]+/[\w./*-]*", text) and ".." not in text and
                not re.search(r"\b[A-Z]{3,}\b", text)):
            self.seen += 1
            if not glob.glob(self.path(text)):
                yield f"there is no {text}"

    def _wrong_in_command(self, command):
        try:
            words = shlex.split(command)
        except ValueError:
            yield f"this is not a command: {command}"
            return
        self.seen += 1
        program = os.path.basename(words[0])
        for word in words:
            yield from self._wrong_path(word)
        if program == "cmake":
            yield from self._wrong_for_cmake(command)
        elif words[0].startswith("scripts/"):
            if os.path.isfile(self.path(words[0])):
                yield from self._unknown_options(words, self.text(words[0]))
        elif program in ("kestrin", "kestrin-vreader"):
            subcommand = words[1] if program == "kestrin" and re.match("[a-z]", " ".join(words[1:])) else None
            known = self._help_of(program, subcommand)
            if not os.path.isfile(os.path.join(self.binaries, program)):
                yield f"{program} is not built"
            elif known is None:
                yield f"{program} has no subcommand {subcommand}"
            else:
                yield from self._unknown_options(words, known)
        else:
            yield f"there is no program {words[0]}"

    @staticmethod
    def _unknown_options(words, known):
        for option in (word.split("=")[0] for word in words[1:] if re.match(r"--?[a-z]", word)):
            if not re.search(rf"(?<![\w-]){re.escape(option)}(?![\w-])", known):
                yield f"{words[0]} does not know {option}"

    @functools.lru_cache(maxsize=None)
    def _help_of(self, program, subcommand):
        command = [os.path.join(self.binaries, program), *([subcommand] if subcommand else []), "--help"]
        try:
            result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        except OSError:
            return None
        return result.stdout if result.returncode == 0 else None

    def _wrong_for_cmake(self, command):
        known = self.text("CMakeLists.txt") + self.text("CMakePresets.json")
        for preset in re.findall(r"--preset[ =](\S+)", command):
            if f'"name": "{preset}"' not in known:
                yield f"there is no preset {preset}"
        for option in re.findall(r"-D(KESTRIN_\w+)", command):
            if not re.search(rf"(option|set)\({option} ", known):
                yield f"there is no option {option}"
