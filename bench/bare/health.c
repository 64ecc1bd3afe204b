// The floor for `disk_info --json health`: asks the daemon once and prints the same document about
// an NVMe disk that has nothing to complain of. The benchmark holds the two documents together.
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

static char reply[4096];

static int32_t int_at(size_t offset) {
    int32_t value;
    memcpy(&value, reply + offset, sizeof value);
    return value;
}

static unsigned long long long_at(size_t offset) {
    uint64_t value;
    memcpy(&value, reply + offset, sizeof value);
    return value;
}

int main(void) {
    const struct sockaddr_un address = {
        AF_UNIX, "/run/binder/com.quendar.tavisk.disk_info.IDiskInfoService/default"};
    const uint32_t request[] = {0x51726942, 2, 0};
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    if (connect(fd, (const struct sockaddr*)&address, sizeof address) != 0) return 4;
    if (send(fd, request, sizeof request, 0) != sizeof request) return 4;
    // Behind the header of 12 bytes: status, marker, arm, marker, size, and the fields.
    if (recv(fd, reply, sizeof reply - 1, 0) < 80) return 3;
    printf(
        "{\n  \"schemaVersion\": 1,\n  \"health\": {\n    \"nvme\": {\n"
        "      \"availableSpare\": %d,\n      \"availableSpareThreshold\": %d,\n"
        "      \"percentageUsed\": %d,\n      \"criticalWarning\": %d,\n"
        "      \"dataUnitsWritten\": %llu,\n      \"numberOfMediaErrors\": %llu,\n"
        "      \"numberOfErrorLogEntries\": %llu,\n      \"discardReadValue\": \"%s\"\n    }\n  },\n"
        "  \"assessment\": {\n    \"verdict\": \"ok\",\n    \"reasons\": [\n"
        "      \"all reported values are within limits\"\n    ]\n  }\n}\n",
        int_at(32), int_at(36), int_at(40), int_at(44), long_at(48), long_at(56), long_at(64),
        reply + 76);
    return 0;
}
