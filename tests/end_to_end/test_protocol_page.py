"""The examples of docs/protocol.md, in the order of the page, against the real process."""

import json
import pathlib
import re

PAGE = pathlib.Path(__file__).parents[2] / "docs/protocol.md"
BLOCK = re.compile(r"^```(send|trace|state|click|receive)\n(.*?)^```$", re.MULTILINE | re.DOTALL)


def test_the_examples_of_the_protocol_page(session):
    peer, extension = session.start_connected()
    blocks = BLOCK.findall(PAGE.read_text(encoding="utf-8"))
    kinds = [kind for kind, _ in blocks]
    assert kinds.count("send") >= 5 and kinds.count("receive") >= 2
    seen = len(extension.output())
    for kind, text in blocks:
        if kind == "send":
            peer.send(text.encode())
        elif kind == "trace":
            extension.wait_output(text)
            assert extension.output()[seen:] == text
            seen += len(text)
        elif kind == "click":
            for click in text.splitlines():
                selector, *urls = click.split(" ")
                session.method("PerformAction", "sas", selector, urls)
        elif kind == "receive":
            expected = text.removesuffix("\n").encode()
            assert peer.receive(len(expected)) == expected
        else:
            for expectation in text.splitlines():
                name, value = expectation.split(" ", 1)
                assert session.get(name) == json.loads(value)
