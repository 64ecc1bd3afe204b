// Many calls of all four kinds: every answer is the first one's, and the daemon holds in the end
// what it held after a tenth of them. SOAK_CALLS says how many; the default is for every day.
#include <daemon.h>
#include <linux/close_range.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

using namespace morsk::com::quendar::tavisk::disk_info;

namespace {

using SoakTest = PrivateRootTest;

struct Answers {
    explicit Answers(Service& service) {
        EXPECT_TRUE(service.getDiskInfo(&info).isOk());
        EXPECT_TRUE(service.getDiskHealth(&health).isOk());
        EXPECT_TRUE(service.getDiskPower(&power).isOk());
        EXPECT_TRUE(service.getFilesystemInfo("userdata", &filesystem).isOk());
    }
    bool operator==(const Answers&) const = default;

    std::optional<DiskInfoParcel> info;
    std::optional<DiskHealthParcel> health;
    std::optional<DiskPowerParcel> power;
    std::optional<FilesystemInfoParcel> filesystem;
};

// The body of a child: counts equal lines of its standard input, and writes the counts to a file.
void CountRecords(int input) {
    std::map<std::string, long> counts;
    FILE* const records = fdopen(input, "r");
    char line[1024];
    while (fgets(line, sizeof line, records) != nullptr) ++counts[line];
    std::ofstream result("/run/counts");
    for (const auto& [record, count] : counts) result << count << ' ' << record;
    result.flush();
    _exit(0);
}

TEST_F(SoakTest, MemoryDescriptorsAndRecordsStayAsTheyAreDue) {
    const char* const wanted = getenv("SOAK_CALLS");
    const long rounds = (wanted != nullptr ? atol(wanted) : 40'000) / 4;
    ASSERT_GE(rounds, 100);
    PlaceDevice();
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    Child counter([&] {
        close(ends[1]);
        CountRecords(ends[0]);
    });
    Child daemon([&] {
        dup2(ends[1], 2);
        close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
        setenv("ASAN_OPTIONS", "quarantine_size_mb=0:thread_local_quarantine_size_kb=0", 1);
        execl(SERVICE_PROGRAM, SERVICE_PROGRAM, nullptr);
    });
    close(ends[0]);
    close(ends[1]);
    ASSERT_TRUE(Eventually([] { return bool(ConnectToService()); }));
    const auto service = ConnectToService();
    const Answers first(*service);
    std::optional<Vitals> before;
    for (long round = 1; round < rounds; ++round) {
        ASSERT_EQ(Answers(*service), first) << round;
        if (round == rounds / 10) before.emplace(daemon.pid());
    }
    const Vitals after(daemon.pid());
    EXPECT_EQ(after.descriptors, 6);  // standard streams, socket, epoll, this connection
    EXPECT_EQ(after.threads, 1);
    EXPECT_LE(after.memory_kib, before->memory_kib + 64);
    std::cout << 4 * rounds << " calls, " << before->memory_kib << " KiB after a tenth of them, "
              << after.memory_kib << " KiB at the end\n";

    daemon.Kill();
    (void)daemon.Wait();
    EXPECT_EQ(counter.Wait(), 0);
    // Of each record that is due its number, and no other.
    std::map<std::string, long> due = {
        {std::string("Found UFS SCSI device path: ") + kUnit, 6 * rounds},
        {std::string("Found UFS host path: ") + kController, 3 * rounds},
        {"Failed to get size for /dev/block/sda: Inappropriate ioctl for device", rounds},
    };
    std::ifstream counts("/run/counts");
    long count = 0;
    for (std::string record; counts >> count && std::getline(counts, record);) {
        const size_t text = record.find(": ");
        EXPECT_EQ(count, due[record.substr(text + 2)]) << record;
        due.erase(record.substr(text + 2));
    }
    EXPECT_TRUE(due.empty());
}

}  // namespace
