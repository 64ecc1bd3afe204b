#!/usr/bin/env python3
"""Prints what the disk info service returns, as JSON. docs/protocol.md describes the protocol.

    examples/ask.py info | health | power | version | hash | fs userdata | fs metadata

Exit status: 0 success, 1 the call failed, 2 wrong usage."""
import json
import socket
import struct
import sys

SOCKET = "/run/binder/com.quendar.tavisk.disk_info.IDiskInfoService/default"
REQUEST, REPLY = 0x51726942, 0x50726942
CODES = {"info": 1, "health": 2, "power": 3, "fs": 4, "hash": 0xFFFFFE, "version": 0xFFFFFF}
# s string, i int, q long, Q unsigned long, I unsigned int, ? boolean, f float
ARMS = {
    "info": [
        "type:s modelNumber:s serialNumber:s firmwareRevision:s versionMajor:i versionMinor:i versionTertiary:i "
        "ffuSupport:? size:Q",
        "type:s vendor:s modelNumber:s firmwareRevision:s ffuSupport:? specVersion:i provisioningType:i "
        "writeBoosterSupport:i writeBoosterEnabled:? writeBoosterBufferPreserveUserSpaceEn:? writeBoosterBufferType:i "
        "writeBoosterFraction:f writeBoosterCurrentAllocUnits:I writeBoosterMaxAllocUnits:I ufsFeatures:s "
        "extendedFeatureSupport:s gear:s rate:s dataLanes:s size:Q"],
    "health": [
        "availableSpare:i availableSpareThreshold:i percentageUsed:i criticalWarning:i dataUnitsWritten:Q "
        "numberOfMediaErrors:Q numberOfErrorLogEntries:Q discardReadValue:s",
        "preEndOfLifeInfo:s deviceLifeTimeEstimationA:s deviceLifeTimeEstimationB:s totalNumberOfErrors:Q "
        "discardReadValue:s"],
    "power": ["currentPowerState:i isOperational:?", "linkState:s isActive:?"],
}
FILESYSTEM = "errorCount:q lastErrorFunction:s lastErrorCode:i sysfsPath:s"


class Reader:
    def __init__(self, data):
        self.data, self.position = data, 0

    def value(self, kind):
        if kind == "s":
            length = self.value("i")
            text = self.data[self.position:self.position + length]
            self.position += length + 4 - length % 4
            return text.decode("utf-8", "replace")
        code = "=" + kind.replace("?", "i")
        value, = struct.unpack_from(code, self.data, self.position)
        self.position += struct.calcsize(code)
        return bool(value) if kind == "?" else value

    def parcelable(self, fields):
        end = self.position + self.value("i")
        read = {name: self.value(kind) for name, kind in (f.split(":") for f in fields.split()) if self.position < end}
        self.position = end
        return read


def ask(call, partition=""):
    data = b""
    if call == "fs":
        text = partition.encode()
        data = struct.pack("=i", len(text)) + text + bytes(4 - len(text) % 4)
    with socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET) as service:
        service.settimeout(10)
        service.connect(SOCKET)
        service.send(struct.pack("=IiI", REQUEST, CODES[call], len(data)) + data)
        message = service.recv(12 + 65536)
    magic, status, size = struct.unpack_from("=IiI", message)
    if magic != REPLY or size != len(message) - 12 or status != 0:
        raise OSError(f"no reply: transport status {status}")
    reader = Reader(message[12:])
    if exception := reader.value("i"):
        raise OSError(f"service error {reader.value('i')}" if exception == -8 else f"exception {exception}")
    if call in ("version", "hash"):
        return reader.value("i" if call == "version" else "s")
    if reader.value("i") == 0:
        return None
    if call == "fs":
        return reader.parcelable(FILESYSTEM)
    tag, _ = reader.value("i"), reader.value("i")
    return {("nvme", "ufs")[tag]: reader.parcelable(ARMS[call][tag])}


if __name__ == "__main__":
    words = sys.argv[1:]
    if not words or words[0] not in CODES or len(words) != 1 + (words[0] == "fs"):
        print(__doc__, file=sys.stderr)
        sys.exit(2)
    try:
        print(json.dumps(ask(*words), indent=2))
    except (OSError, IndexError, struct.error) as error:
        print(f"ask.py: {error}", file=sys.stderr)
        sys.exit(1)
