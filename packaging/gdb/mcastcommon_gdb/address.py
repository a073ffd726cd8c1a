"""Address records and instance keys as text."""

import ipaddress

from .memory import summary

IPV4, IPV6 = 2, 10


def text_of_bytes(family, raw):
    if family == IPV4:
        return str(ipaddress.IPv4Address(raw[:4]))
    return str(ipaddress.IPv6Address(raw[:16]))


def text(record):
    family = int(record["family"])
    raw = bytes(int(record["address"][at]) for at in range(16))
    if family in (IPV4, IPV6):
        return text_of_bytes(family, raw)
    return f"family {family}: {raw.hex()}"


def family_name(family):
    return {IPV4: "IPv4", IPV6: "IPv6"}.get(int(family), f"family {int(family)}")


def key_text(key):
    return f"{family_name(key['family'])}, instance {int(key['vrf_index'])}"


PRINTERS = {"MCAST_ADDR_S": summary(text), "MRIB_GMP_VRF_KEY_S": summary(key_text)}
