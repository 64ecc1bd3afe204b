// The floor for `disk_info --json health`: makes the call once and prints the same document for a
// healthy NVMe disk. The benchmark compares the two documents.
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

static char reply[4096];

static int32_t IntAt(size_t offset) {
    int32_t value;
    memcpy(&value, reply + offset, sizeof(value));
    return value;
}

static unsigned long long LongAt(size_t offset) {
    uint64_t value;
    memcpy(&value, reply + offset, sizeof(value));
    return value;
}

// The ratio of a percentage, with one decimal or two.
static const char* RatioOf(int percent, char* text) {
    const int length = sprintf(text, "%.2f", percent / 100.0);
    if (text[length - 1] == '0') text[length - 1] = '\0';
    return text;
}

int main(void) {
    const struct sockaddr_un address = {
        AF_UNIX, "/run/binder/com.quendar.tavisk.disk_info.IDiskInfoService/default"};
    const uint32_t request[] = {0x51726942, 2, 0};
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    if (connect(fd, (const struct sockaddr*)&address, sizeof(address)) != 0) return 4;
    if (send(fd, request, sizeof(request), 0) != sizeof(request)) return 4;
    // After the header of 12 bytes: status, marker, arm, marker, size, and the fields.
    if (recv(fd, reply, sizeof(reply) - 1, 0) < 80) return 3;
    const int has_spare = IntAt(32) != 0 || IntAt(36) != 0;
    char life[32], spare[32], threshold[32];
    printf(
        "{\n  \"schemaVersion\": 1,\n  \"health\": {\n    \"nvme\": {\n"
        "      \"availableSpare\": %d,\n      \"availableSpareThreshold\": %d,\n"
        "      \"percentageUsed\": %d,\n      \"criticalWarning\": %d,\n"
        "      \"dataUnitsWritten\": %llu,\n      \"numberOfMediaErrors\": %llu,\n"
        "      \"numberOfErrorLogEntries\": %llu,\n      \"discardReadValue\": \"%s\"\n    }\n  "
        "},\n"
        "  \"assessment\": {\n    \"verdict\": \"ok\",\n    \"reasons\": [\n"
        "      \"all reported values are within limits\"\n    ],\n    \"findings\": []\n  },\n"
        "  \"readings\": {\n    \"lifeUsedRatio\": %s,\n    \"spareRatio\": %s,\n"
        "    \"spareThresholdRatio\": %s,\n    \"criticalWarnings\": [],\n"
        "    \"reservedBlocks\": null,\n    \"writtenBytes\": %llu,\n"
        "    \"mediaErrors\": %llu,\n    \"errorLogEntries\": %llu,\n"
        "    \"ioErrors\": null\n  }\n}\n",
        IntAt(32), IntAt(36), IntAt(40), IntAt(44), LongAt(48), LongAt(56), LongAt(64), reply + 76,
        RatioOf(IntAt(40), life), has_spare ? RatioOf(IntAt(32), spare) : "null",
        has_spare ? RatioOf(IntAt(36), threshold) : "null", LongAt(48) * 512000, LongAt(56),
        LongAt(64));
    return 0;
}
