"""Where folders come from: the list in the settings file, or whatever else can name them."""

import dataclasses
from collections.abc import AsyncIterator, Sequence
from typing import Protocol


@dataclasses.dataclass(frozen=True)
class Folder:
    """A folder with the badge, and what commands call it."""

    path: str
    name: str


class Source(Protocol):
    """A source is an object with this one method."""

    def watch(self) -> AsyncIterator[Sequence[Folder]]:
        """Gives all folders of the source, and all of them again whenever they have changed."""


@dataclasses.dataclass(frozen=True)
class ListInFile:
    """The folders that stand in the settings file, which is read anew when it is edited."""

    folders: tuple[Folder, ...]

    async def watch(self) -> AsyncIterator[Sequence[Folder]]:
        yield self.folders
