"""When a block can be written so that it arrives in one piece."""

import fcntl
import socket
import struct
import sys
import termios

from .state import BLOCK_SIZE

_LINUX_SND_WND = 228  # offset of tcpi_snd_wnd in struct tcp_info, since Linux 5.4
_MAC_TCP_CONNECTION_INFO = 0x106
_MAC_SND_WND = 28  # offset of tcpi_snd_wnd, after which comes tcpi_snd_sbbytes


def has_room(link: socket.socket) -> bool:
    """Whether all that was written is acknowledged and the receive window has room for a block.

    TCP fills a smaller window with the beginning of the block. Also true for a lost connection,
    which writing finds out. The branch for macOS has not been run on a Mac.
    """
    try:
        if sys.platform == "darwin":
            info = link.getsockopt(socket.IPPROTO_TCP, _MAC_TCP_CONNECTION_INFO, _MAC_SND_WND + 8)
            window, unacknowledged = struct.unpack_from("II", info, _MAC_SND_WND)
        else:
            # In this order: a window that was read before the acknowledgement is the one of before.
            unacknowledged, = struct.unpack("i", fcntl.ioctl(link, termios.TIOCOUTQ, bytes(4)))
            info = link.getsockopt(socket.IPPROTO_TCP, socket.TCP_INFO, _LINUX_SND_WND + 4)
            window, = struct.unpack_from("I", info, _LINUX_SND_WND)
    except OSError:
        return True
    return bool(unacknowledged == 0 and window >= BLOCK_SIZE)
