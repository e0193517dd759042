"""The examples of docs/protocol.md, in the order of the page, against the real process."""

import json
import pathlib
import re

PAGE = pathlib.Path(__file__).parents[2] / "docs/protocol.md"
BLOCK = re.compile(r"^```(send|trace|state)\n(.*?)^```$", re.MULTILINE | re.DOTALL)


def test_the_examples_of_the_protocol_page(session):
    peer, extension = session.start_connected()
    blocks = BLOCK.findall(PAGE.read_text(encoding="utf-8"))
    assert [kind for kind, _ in blocks].count("send") >= 5
    seen = len(extension.output())
    for kind, text in blocks:
        if kind == "send":
            peer.send(text.encode())
        elif kind == "trace":
            extension.wait_output(text)
            assert extension.output()[seen:] == text
            seen += len(text)
        else:
            for expectation in text.splitlines():
                name, value = expectation.split(" ", 1)
                assert session.get(name) == json.loads(value)
