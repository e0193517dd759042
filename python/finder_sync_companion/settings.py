"""The settings that the companion shares with the extension on Linux: one file for each group."""

import json
import os
import pathlib
import tempfile
from collections.abc import Mapping
from typing import Any


def config_home() -> pathlib.Path:
    """Where the user's settings are. A relative path in the variable counts as none."""
    base = os.environ.get("XDG_CONFIG_HOME", "")
    return pathlib.Path(base) if base.startswith("/") else pathlib.Path.home() / ".config"


def file_of(group: str) -> pathlib.Path:
    """The settings file of an application group."""
    return config_home() / group / "settings.json"


def write(group: str, values: Mapping[str, str | int]) -> None:
    """Merges values into the file, whose other keys stay. The file is replaced in one step, so that
    the extension never reads half of it, and only the user can read it.

    Raises OSError when it cannot be read or written, and ValueError when what is there is malformed:
    it is left as it is then.
    """
    path = file_of(group)
    merged = {**read(group), **values}
    path.parent.mkdir(parents=True, exist_ok=True)
    descriptor, temporary = tempfile.mkstemp(prefix=path.name, dir=path.parent)  # of mode 0600
    try:
        with open(descriptor, "w", encoding="utf-8") as file:
            json.dump(merged, file, ensure_ascii=False, indent=2)
            file.write("\n")
            file.flush()
            os.fsync(file.fileno())
        os.replace(temporary, path)
    except BaseException:
        os.unlink(temporary)
        raise


def read(group: str) -> dict[str, Any]:
    """What is in the file, nothing if there is none. Raises as `write` does."""
    path = file_of(group)
    try:
        values = json.loads(path.read_text(encoding="utf-8"))
    except FileNotFoundError:
        return {}
    except (ValueError, RecursionError) as error:
        raise ValueError(f"{path} is malformed: {error}") from None
    if not isinstance(values, dict):
        raise ValueError(f"{path} is malformed: it is not a JSON object")
    return values
