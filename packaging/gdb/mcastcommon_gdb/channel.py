"""The connection to the MRIB: what waits in it, and the client's view."""

import gdb

from .address import family_name, key_text
from .memory import bytes_at, cast, count, object_named, summary

HEADER, RECORD_HEADER = 12, 4
NONE = 0xFFFFFFFF


def record_names():
    """What a client sends, by number, when the debug information has it."""
    try:
        fields = gdb.lookup_type("MRIB_TLV_TO_MRIB_E").fields()
    except gdb.error:
        try:
            fields = gdb.lookup_type("enum MRIB_TLV_TO_MRIB_E").fields()
        except gdb.error:
            return {}
    return {field.enumval: field.name.removeprefix("MRIB_TLV_") for field in fields}


def records(message, used):
    """Type and length of each record of a message that is used bytes long."""
    at, end = int(message) + HEADER, int(message) + int(used)
    while at + RECORD_HEADER <= end:
        header = cast(at, "MRIB_TLV_HEADER_S")
        length = int(header["length"])
        yield int(header["type"]), length
        at += RECORD_HEADER + length


def message_text(message, used):
    names, found = record_names(), {}
    for kind, _ in records(message, used):
        found[kind] = found.get(kind, 0) + 1
    what = ", ".join(f"{number} {names.get(kind, f'of type {kind}')}" for kind, number in found.items())
    return f"{int(used)} bytes: {what or 'no record'}"


def pending(connection):
    node, left = connection["pending_head"], int(connection["pending_count"])
    while int(node) and left > 0:
        yield node.dereference()
        node, left = node["next"], left - 1


def connection_text(connection):
    socket = int(connection["socket"])
    waiting = f"{int(connection['pending_count'])} of {int(connection['pending_limit'])} messages wait"
    lost = int(connection["dropped_count"]) + int(connection["allocation_failure_count"])
    state = "not connected" if socket == -1 else f"connected by descriptor {socket}"
    failed = ", failed" if int(connection["failed"]) else ""
    return f"{state}{failed}; {int(connection['used'])} bytes in the current message; {waiting}; {lost} lost"


def pending_text(node):
    return message_text(node["message"], node["length"])


def lines():
    connection = object_named("g_stMribConnectInfo")
    component = object_named("g_stMRIBComponent")
    family = object_named("g_ucMribGmpFamily")
    yield f"component {int(component['component'])}, {family_name(family)}, {connection_text(connection)}"
    yield f"  queued ever {int(connection['queued_count'])}, lost to a full queue {int(connection['dropped_count'])}, " \
          f"lost to short memory {int(connection['allocation_failure_count'])}"
    yield f"  flow control {int(connection['busy'])}, replays awaited {int(object_named('g_ulMribGmpSmoothEndFlag'))}"
    if int(connection["out_buffer"]):
        yield "  current: " + message_text(connection["out_buffer"], connection["used"])
    for number, node in enumerate(pending(connection), 1):
        yield f"  waiting {number}: {pending_text(node)}"


def instance_text(instance):
    acl = int(instance["ssm_acl"])
    state = "enabled" if int(instance["l3mc_state"]) == 1 else "disabled"
    policy = "no SSM list" if acl == NONE else f"SSM list {acl}"
    return f"{key_text(instance['key'])}: {state}, {policy}, flags {int(instance['flags'])}"


def view_lines():
    view = object_named("g_stMribGmpVrfInfo")
    yield f"view of {count(int(view['count']), 'instance')}"
    for number in range(int(view["count"])):
        yield "  " + instance_text(view["vrfs"][number])


PRINTERS = {
    "MRIB_GMP_CONNECT_S": summary(connection_text),
    "MRIB_GMP_PENDING_S": summary(pending_text),
    "MRIB_GMP_VRF_S": summary(instance_text),
}
