"""What may become of a session in which calls fail: it goes on and tells the truth, or it ends and
says why."""

import re

# The last words of a fatal error, by the functions whose failure is one.
LAST_WORDS = {
    "no run loop: ": "sd_event_default",
    "signals cannot be watched: ": "eventfd sd_event_add_io",
    "the link cannot be watched: ": """sd_event_add_io sd_event_add_defer
        sd_event_source_set_enabled sd_event_source_set_io_events""",
    "the shared settings cannot be opened: ": "open fstat read",
    "/proc/self/exe cannot be read: ": "readlink",
    'the image "icon_Folder" is missing ': "stat access",
    "the object cannot be put onto the session bus: ": """sd_bus_add_filter
        sd_bus_add_object_vtable sd_event_add_time sd_event_source_set_enabled""",
    "the run loop failed: ": "sd_event_run",
    "line 1 of a read of .* bytes: not ": "recv",  # cut in two
    "unexpected exception: U_MEMORY_ALLOCATION_ERROR": """unorm_compare_??
        _ZN6icu_??11Normalizer214getNFDInstanceER10UErrorCode
        _ZN6icu_??13BreakIterator23createCharacterInstanceERKNS_6LocaleER10UErrorCode""",
    "no memory|.*: Cannot allocate memory": "memory",
}
# The same where it ends with exit code 1.
COMPLAINTS = {
    "there is no session bus to connect to ": "sd_bus_open_user memory",
    "the bus name .* cannot be had: ": "sd_bus_request_name memory",
    "the bus name .* is taken":
        "sd_bus_request_name sd_bus_get_name_creds sd_bus_creds_get_pid memory",
    "the session bus cannot be served: ": "sd_bus_attach_event memory",
}
# Their failure breaks the link, or prevents it; the trace says so.
OF_THE_LINK = {"inet_pton", "socket", "connect", "getsockopt", "getsockname", "getpeername",
               "open", "read", "__read_chk", "recv", "sd_event_add_io", "memory"}
# The ways of `send` that report a reset, after which the end of the link is not reported.
RESETS = (" send 1", " send 2")
# Their failure loses lines of the trace, or splits one event into two.
OF_THE_TRACE = {"write", "ioctl"}
NO_MEMORY_FOR_A_THREAD = "Fatal glibc error: failed to register TLS destructor: out of memory"
BUS_HAS_GONE = "finder-sync-extension: the session bus has gone, so the session is over"


def is_error(answer):
    return isinstance(answer, str) and answer.startswith("error ")


def last_words(outcome):
    """The lines on standard error that are not of the log."""
    log = re.compile(r"(\S+ )*finder-sync-extension\[\d+\] ")
    return [line for line in outcome.error.splitlines() if not log.match(line)]


def failed_functions(outcome):
    """Those of lines such as "failed call 3 recv 2" and "failed memory 100 library caller"."""
    words = map(str.split, outcome.report.failed)
    return {each[1] if each[1] == "memory" else each[3] for each in words}


def complaints(clean, outcome):
    """Everything that is wrong with an outcome, one text for each."""
    words, failed = last_words(outcome), failed_functions(outcome)
    if outcome.code is None:
        return ["it hangs"]
    if outcome.code == clean.code != 0 and words == last_words(clean):
        return []
    if outcome.code == 0:
        return list(of_a_whole_session(clean, outcome, words, failed))
    if outcome.code in (-6, 1):
        if not words and "write" in failed or words == [NO_MEMORY_FOR_A_THREAD]:
            return []  # the line is what could not be written
        prefix = "finder-sync-extension: " + ("fatal error: " if outcome.code == -6 else "")
        reasons = "|".join(reason for reason, functions in
                           (LAST_WORDS if outcome.code == -6 else COMPLAINTS).items()
                           if failed & set(functions.split()))
        if len(words) == 1 and reasons and re.match(f"{prefix}({reasons})", words[0]):
            return []
    return [f"it ends with {outcome.code} and says {words}, which is not for {failed}"]


def of_a_whole_session(clean, outcome, words, failed):
    ended_early = words == [BUS_HAS_GONE] and "memory" in failed
    if words and not ended_early:
        yield f"it says {words}"
    if len(outcome.answers) < len(clean.answers) and not ended_early:
        yield "it ends early"
    is_linked = "Stream open error" not in outcome.output
    is_reset = any(text.endswith(RESETS) for text in outcome.report.failed)
    if not is_linked and not failed & OF_THE_LINK and not is_reset:
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
    leaked = outcome.report.leaked_blocks - clean.report.leaked_blocks
    if outcome.report.blocks_at_end >= 0 and leaked > 0:
        yield f"{leaked} blocks of memory have leaked"


def is_lesser(wanted, answer, failed):
    """Whether an answer is what is left of another one where less is all that there can be."""
    if isinstance(wanted, bytes):  # a report that is cut off or lost
        return "send" in failed and (answer == "BlockingIOError" or wanted.startswith(answer))
    if failed & {"stat", "access"} and isinstance(wanted, tuple) and len(wanted) == 2:
        # An entry without its icon.
        return [entry[:2] for entry in wanted[1]] == [entry[:2] for entry in answer[1]]
    return False
