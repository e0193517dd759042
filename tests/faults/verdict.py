"""What may become of a session in which calls fail: it goes on and tells the truth, or it ends and
says why."""

import re

# Where the extension cannot go on, it has to end in this way, and nothing else may end it.
LAST_WORDS = {
    "sd_event_default": "no run loop: ",
    "eventfd": "signals cannot be watched: ",
    "sd_event_add_io": "signals cannot be watched: |link cannot be watched: ",
    "open": "the shared settings cannot be opened: ",
    "fstat": "the shared settings cannot be opened: ",
    "read": "the shared settings cannot be opened: ",
    "readlink": "/proc/self/exe cannot be read: ",
    "stat": 'the image "icon_Folder" is missing ',
    "access": 'the image "icon_Folder" is missing ',
    "sd_bus_add_filter": "the object cannot be put onto the session bus: ",
    "sd_bus_add_object_vtable": "the object cannot be put onto the session bus: ",
    "sd_event_add_defer": "the object cannot be put onto the session bus: "
                          "|the link cannot be watched: ",
    "sd_event_source_set_enabled": "the object cannot be put onto the session bus: "
                                   "|the link cannot be watched: ",
    "sd_event_source_set_io_events": "the link cannot be watched: ",
    "sd_event_run": "the run loop failed: ",
    "recv": "an inbound message has no |inbound bytes are not ",  # cut in two
    "unorm_compare_72": "unexpected exception: U_MEMORY_ALLOCATION_ERROR",
    "_ZN6icu_7211Normalizer214getNFDInstanceER10UErrorCode":
        "unexpected exception: U_MEMORY_ALLOCATION_ERROR",
    "_ZN6icu_7213BreakIterator23createCharacterInstanceERKNS_6LocaleER10UErrorCode":
        "unexpected exception: U_MEMORY_ALLOCATION_ERROR",
    "memory": "no memory|.*: Cannot allocate memory",
}
# Where it gives way, with exit code 1.
COMPLAINTS = {
    "sd_bus_open_user": "there is no session bus to connect to ",
    "sd_bus_request_name": "the bus name .* (cannot be had|is taken)",
    "sd_bus_get_name_creds": "the bus name .* is taken",
    "sd_bus_creds_get_pid": "the bus name .* is taken",
    "sd_bus_attach_event": "the session bus cannot be served: ",
    "memory": "there is no session bus to connect to "
              "|the bus name .* (cannot be had: |is taken)|the session bus cannot be served: ",
}
# What breaks the link, or keeps it from coming about; the trace tells.
OF_THE_LINK = {"inet_pton", "socket", "connect", "getsockopt", "recv", "sd_event_add_io"}
# The ways of `send` that tell of a reset, after which the end of the link is none.
RESETS = {"1", "2"}
# What loses lines of the trace, or takes an event for two.
OF_THE_TRACE = {"write", "ioctl"}


def is_error(answer):
    return isinstance(answer, str) and answer.startswith("error ")


def last_words(outcome):
    """The lines on standard error that are no log."""
    log = re.compile(r"(\S+ )*finder-sync-extension\[\d+\] ")
    return [line for line in outcome.error.splitlines() if not log.match(line)]


def failed_functions(outcome):
    return {line.split()[1] if line.split()[1] == "memory" else line.split()[3]
            for line in outcome.failed}


def is_told_of_a_reset(outcome):
    return any(line.split()[3:] == ["send", way] for line in outcome.failed for way in RESETS)


def complaints(clean, outcome):
    """Everything that is wrong with an outcome, one text for each."""
    words, failed = last_words(outcome), failed_functions(outcome)
    expected = {-6: LAST_WORDS, 1: COMPLAINTS}.get(outcome.code)
    if outcome.code is None:
        return [f"it hangs: {outcome.hang}"]
    if outcome.code == clean.code != 0 and words == last_words(clean):
        return []
    if outcome.code == 0:
        return list(of_a_whole_session(clean, outcome, words, failed))
    if expected is None:
        return [f"it ends with {outcome.code} and says {words}"]
    if not words and "write" in failed:
        return []  # the line is what could not be written
    if len(words) != 1:
        return [f"it ends with {outcome.code} and says {words}, which is not one line"]
    if words[0] == "Fatal glibc error: failed to register TLS destructor: out of memory":
        return []
    prefix = "finder-sync-extension: " + ("fatal error: " if outcome.code == -6 else "")
    reasons = "|".join(expected[function] for function in sorted(failed & expected.keys()))
    if not reasons or not re.match(f"{prefix}({reasons})", words[0]):
        return [f"it ends with {outcome.code} and says {words[0]!r}, which is not for {failed}"]
    return []


def of_a_whole_session(clean, outcome, words, failed):
    over = "finder-sync-extension: the session bus has gone, so the session is over"
    ended_early = words == [over] and "memory" in failed
    if words and not ended_early:
        yield f"it says {words}"
    if len(outcome.answers) < len(clean.answers) and not ended_early:
        yield "it ends early"
    is_linked = "Stream open error" not in outcome.output
    if not is_linked and not failed & (OF_THE_LINK | {"memory"}) \
            and not is_told_of_a_reset(outcome):
        yield "the link is lost"
    has_been_told = not is_linked
    for step, answer in outcome.answers.items():
        wanted = clean.answers[step]
        if is_error(answer):
            has_been_told = has_been_told or not is_error(wanted)
        elif answer == "no answer":
            # sd-bus drops an error that it has no memory to send.
            if "memory" not in failed:
                yield f"{step}: no answer"
        elif answer != wanted and not (has_been_told or ended_early or
                                       is_lesser(wanted, answer, failed)):
            yield f"{step}: {answer}"
    if not has_been_told and not ended_early and outcome.output != clean.output \
            and not failed & OF_THE_TRACE:
        yield "its trace differs"
    if outcome.descriptors and max(outcome.descriptors) > max(clean.descriptors):
        yield f"descriptors: {outcome.descriptors}"
    leaked = outcome.undeliberate_blocks - clean.undeliberate_blocks
    if outcome.blocks_at_end >= 0 and leaked > 0:
        yield f"{leaked} blocks of memory have leaked"


def is_lesser(wanted, answer, failed):
    """Whether an answer is what is left of another one where less is all that there can be."""
    if isinstance(wanted, bytes):  # a report that is cut off or lost
        return "send" in failed and (answer == "BlockingIOError" or wanted.startswith(answer))
    if failed & {"stat", "access"} and isinstance(wanted, tuple) and len(wanted) == 2:
        # An entry without its icon.
        return [entry[:2] for entry in wanted[1]] == [entry[:2] for entry in answer[1]]
    return False


def kind_of_end(clean, outcome):
    """How a session ended, in a few words, to be counted."""
    words = last_words(outcome)
    if outcome.code is None:
        return "hangs"
    if outcome.code != 0:
        kind = {-6: "fatal error", 1: "gives way"}.get(outcome.code, f"exit code {outcome.code}")
        word = words[0] if words else "nothing said"
        return kind + ": " + re.sub(r"^finder-sync-extension: (fatal error: )?|[(:].*", "", word)
    if not outcome.failed:
        return "0: the call did not come about"
    if words:
        return "0: the bus has closed the connection"
    if any(is_error(answer) and not is_error(clean.answers[step])
           for step, answer in outcome.answers.items()):
        return "0: the caller is told of the error"
    if "Stream open error" in outcome.output:
        return "0: the link is told to be broken"
    return "0: all is as if nothing had been, but for what was lost" \
        if outcome.answers != clean.answers else "0: all is as if nothing had been"
