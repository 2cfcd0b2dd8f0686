"""The project's files as the style tests see them: written by hand, not built."""
import pathlib

SOURCE_SUFFIXES = {".h", ".hpp", ".c", ".cpp", ".S"}
SCRIPT_SUFFIXES = {".sh", ".py", ".cmake"}
SKIPPED_FOLDERS = {".git", ".cache", "build", "dist", "corpus"}
SAMPLES = "tests/style/samples"


def project_files(root):
    """Paths relative to `root`, sorted; the samples of bad style are left out."""
    found = []
    folders = [root]
    while folders:
        for path in folders.pop().iterdir():
            name = path.relative_to(root).as_posix()
            if path.is_symlink() or path.name in SKIPPED_FOLDERS or name == SAMPLES:
                continue
            if path.is_dir():
                folders.append(path)
            else:
                found.append(pathlib.PurePosixPath(name))
    return sorted(found)


def is_source(path):
    return path.suffix in SOURCE_SUFFIXES


def is_script(path):
    return path.suffix in SCRIPT_SUFFIXES or path.name == "CMakeLists.txt"
