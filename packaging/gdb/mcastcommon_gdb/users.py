"""The store of users that authentication agents have announced."""

from . import address, host
from .memory import cast, count, object_named, summary, text_at

KINDS = 7
MARKED, NEW = 0x00000002, 0x10000000


def state(user):
    flags = int(user["flags"])
    words = [word for bit, word in ((NEW, "not online"), (MARKED, "to be deleted")) if flags & bit]
    return "".join(f", {word}" for word in words)


def text(user):
    node = f" of node {int(user['node']['number'])}" if int(user["node"]) else ""
    place = f"interface {int(user['if_index'])}" if int(user["if_index"]) else "no interface"
    groups = count(int(user["groups"]["group_count"]), "group")
    return (f"user {int(user['user_id'])} {text_at(user['name'])!r}{node}: kind {int(user['kind'])}, {place}, "
            f"{address.text(user['address'])}, {groups}{state(user)}")


def users_of_node(node):
    for kind in range(KINDS):
        seen, user = set(), node["kinds"][kind]["head"]
        while int(user) and int(user) not in seen:
            seen.add(int(user))
            yield user.dereference()
            user = user["next_of_kind"]


def users_of_index(store):
    """Those that have an interface, from the index beside the platform's tree."""
    index = store["index"]
    if int(index["users"]):
        for place in range(int(index["mask"]) + 1):
            if int(index["users"][place]):
                yield index["users"][place].dereference()


def users(store):
    try:
        for record in host.hash_records(store["nodes"]):
            yield from users_of_node(cast(record, "MCAST_USRAUTH_NODE_S"))
    except host.OtherPlatform:
        yield from users_of_index(store)


def lines(node=None):
    store = object_named("mcast::usrauth::g_store")
    if not int(store["open"]):
        yield "no store"
        return
    yield f"store of {address.family_name(store['family'])} users"
    for user in users(store):
        if node is None or int(user["node"]["number"]) == node:
            yield "  " + text(user)


PRINTERS = {"MCAST_USRAUTH_USER_S": summary(text)}
