"""SNMPv2c messages (RFC 1901, RFC 3416) to and from bytes, written from the standards: it
shares nothing with the daemon's library."""
import collections

INTEGER, OCTETS, NULL, OID = 2, 4, 5, 6
COUNTER32, GAUGE32, TICKS, COUNTER64 = 0x41, 0x42, 0x43, 0x46
NO_OBJECT, NO_INSTANCE, END_OF_MIB = 0x80, 0x81, 0x82
GET, GET_NEXT, RESPONSE, SET, REPORT = 0xA0, 0xA1, 0xA2, 0xA3, 0xA8
SEQUENCE = 0x30

Pdu = collections.namedtuple("Pdu", "kind id error index bindings", defaults=(0, 0, ()))
Binding = collections.namedtuple("Binding", "name type value", defaults=(NULL, None))


def tlv(tag, content):
    size = len(content)
    if size < 0x80:
        return bytes((tag, size)) + content
    length = size.to_bytes((size.bit_length() + 7) // 8, "big")
    return bytes((tag, 0x80 | len(length))) + length + content


def number(value, tag=INTEGER):
    """In as few bytes as two's complement allows (X.690 8.3.2), of unsigned types, too."""
    bits = value.bit_length() if value >= 0 else (value + 1).bit_length()
    return tlv(tag, value.to_bytes(bits // 8 + 1, "big", signed=True))


def oid(sub_ids):
    content = bytearray((40 * sub_ids[0] + sub_ids[1],))
    for sub_id in sub_ids[2:]:
        groups = [sub_id & 0x7F]
        while sub_id := sub_id >> 7:
            groups.append(0x80 | sub_id & 0x7F)
        content += bytes(reversed(groups))
    return tlv(OID, bytes(content))


def binding(name, kind=NULL, value=None):
    if isinstance(value, int):
        coded = number(value, kind)
    elif isinstance(value, tuple):
        coded = oid(value)
    else:
        coded = tlv(kind, value or b"")
    return tlv(SEQUENCE, oid(name) + coded)


def message(pdu, community=b"kivrel", version=1):
    bindings = b"".join(binding(*each) for each in pdu.bindings)
    body = b"".join((number(pdu.id), number(pdu.error), number(pdu.index), tlv(SEQUENCE, bindings)))
    return tlv(SEQUENCE, number(version) + tlv(OCTETS, community) + tlv(pdu.kind, body))


def split(data):
    """The elements of these bytes, as (tag, content)."""
    elements = []
    while data:
        tag, size, at = data[0], data[1], 2
        if size & 0x80:
            at += size & 0x7F
            size = int.from_bytes(data[2:at], "big")
        elements.append((tag, data[at:at + size]))
        data = data[at + size:]
    return elements


def sub_ids(content):
    found, value = [content[0] // 40, content[0] % 40], 0
    for byte in content[1:]:
        value = value << 7 | byte & 0x7F
        if not byte & 0x80:
            found.append(value)
            value = 0
    return tuple(found)


def parse_request(data):
    """(community, PDU) of a request; its bindings hold names only."""
    ((_, content),) = split(data)
    _, (_, community), (kind, body) = split(content)
    *numbers, (_, bindings) = split(body)
    names = [sub_ids(split(each)[0][1]) for _, each in split(bindings)]
    fields = [int.from_bytes(value, "big", signed=True) for _, value in numbers]
    return community, Pdu(kind, *fields, [Binding(name) for name in names])
