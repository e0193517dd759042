"""The companion's side of the link to a Finder Sync extension.

`Companion` holds what every extension must be told; `Connection` turns it into the blocks of one
connection and gives what the user picks as values. Neither does input or output. `Server` does, for
every extension that connects.
"""

from .connection import Connection
from .reports import Report, ReportType
from .server import Server, restart_extension
from .state import BLOCK_SIZE, Companion, Reason, Refusal, Titles

__all__ = ["BLOCK_SIZE", "Companion", "Connection", "Reason", "Refusal", "Report", "ReportType",
           "Server", "Titles", "restart_extension"]
