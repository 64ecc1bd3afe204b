// The road from a raw message to its reply: the real service, served in a thread of this process on
// a UFS disk made of files. An input is a list of messages from one client; another, well-behaved
// client must not notice.
#include <binder/parcel_utils.h>
#include <binder/process.h>
#include <binder/service_manager.h>
#include <message.h>
#include <morsk/BpDiskInfoService.h>
#include <service/DiskInfoService.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "fuzz.h"

using namespace morsk::com::quendar::tavisk::disk_info;
using Bytes = std::vector<uint8_t>;

namespace {

constexpr char kInstance[] = "com.quendar.tavisk.disk_info.IDiskInfoService/default";
constexpr size_t kMostMessages = 8;  // as many replies as surely fit into a client's queue
constexpr uint32_t kCodes[] = {4, 1, 2, 3, 0xfffffe, 0xffffff, 5, 0};

DiskInfoService* service;
BpDiskInfoService* good_client;

uint32_t Word(std::span<const uint8_t> bytes, size_t offset) {
    uint32_t word = 0;
    std::memcpy(&word, &bytes[offset], sizeof word);
    return word;
}

Bytes Message(uint32_t magic, uint32_t word, std::span<const uint8_t> data, uint32_t lie = 0) {
    const uint32_t header[] = {magic, word, static_cast<uint32_t>(data.size()) + lie};
    Bytes message(sizeof header);
    std::memcpy(message.data(), header, sizeof header);
    message.insert(message.end(), data.begin(), data.end());
    return message;
}

// A third of the messages is raw, the others have a header, which may lie about the size; some fill
// the largest message but for a few bytes, or pass it.
Bytes NextMessage(Input* input) {
    const uint8_t choice = input->Byte();
    const auto data = input->Take(input->Byte());
    if (choice % 3 == 0) return {data.begin(), data.end()};
    Bytes padded(data.begin(), data.end());
    if (choice >= 0xF0) padded.resize(65536 - 8 + choice % 16);
    return Message(0x51726942, kCodes[choice / 3 % 8], padded,
                   choice % 32 == 31 ? input->Byte() : 0);
}

bool IsGood(const Bytes& message) {
    return message.size() >= 12 && message.size() <= 12 + 65536 && Word(message, 0) == 0x51726942 &&
           Word(message, 8) == message.size() - 12;
}

int Connect() {
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un address{AF_UNIX, {}};
    std::strcpy(address.sun_path, (std::string("/run/binder/") + kInstance).c_str());
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    return fd;
}

// The next reply; empty at the connection's end, which may be told by an error once before.
Bytes Receive(int fd) {
    Bytes reply(12 + 65536 + 1);
    ssize_t size = recv(fd, reply.data(), reply.size(), 0);
    if (size < 0) size = recv(fd, reply.data(), reply.size(), 0);
    reply.resize(static_cast<size_t>(std::max(size, ssize_t{0})));
    return reply;
}

template <typename Parcelable>
void ExpectParses(const AParcel* reply) {
    binder::ScopedStatus status;
    std::optional<Parcelable> result;
    EXPECT_EQ(AParcel_readStatusHeader(reply, status.slot()), STATUS_OK);
    if (status.isOk()) EXPECT_EQ(AParcel_readNullableData(reply, &result), STATUS_OK);
    EXPECT_EQ(reply->position, reply->data.size());
}

// A reply is what the same call gives without a transport in between.
void ExpectReply(const Bytes& reply, uint32_t code, std::span<const uint8_t> data) {
    const binder::StrongBinder local = service->asBinder();
    AParcel* request = nullptr;
    binder::ScopedParcel wanted;
    EXPECT_EQ(AIBinder_prepareTransaction(local.get(), &request), STATUS_OK);
    request->Assign(data);
    const binder_status_t status = AIBinder_transact(local.get(), code, &request, wanted.slot(), 0);
    EXPECT_EQ(reply, Message(0x50726942, static_cast<uint32_t>(status),
                             wanted ? std::span<const uint8_t>(wanted.get()->data)
                                    : std::span<const uint8_t>()));
    EXPECT_EQ(static_cast<bool>(wanted), status == STATUS_OK);
    if (!wanted) return;
    if (code == 1) ExpectParses<DiskInfoParcel>(wanted.get());
    if (code == 2) ExpectParses<DiskHealthParcel>(wanted.get());
    if (code == 3) ExpectParses<DiskPowerParcel>(wanted.get());
    if (code == 4) ExpectParses<FilesystemInfoParcel>(wanted.get());
}

void MakeDisks() {
    const std::string host = "/sys/devices/ufs";
    const std::string scsi = host + "/host0/target0:0:0/0:0:0:0";
    MakeDirectory(scsi + "/block/sda");
    WriteLink("/sys/block/sda", scsi + "/block/sda");
    WriteFile(scsi + "/vendor", "ACME");
    WriteFile(host + "/health_descriptor/eol_info", "0x01");
    WriteFile(host + "/power_info/link_state", "ACTIVE");
    WriteLink("/dev/block/by-name/userdata", "../sda5");
    WriteFile("/dev/block/sda5", "");
    WriteLink("/dev/block/mapper/userdata", "../dm-5");
    WriteLink("/dev/block/by-name/metadata", "../sda6");
    for (const auto& [device, count] : {std::pair("dm-5", "11"), std::pair("sda6", "12")}) {
        const std::string directory = std::string("/sys/fs/ext4/") + device;
        WriteFile(directory + "/errors_count", count);
        WriteFile(directory + "/last_error_func", "ext4_find_entry");
        WriteFile(directory + "/last_error_errcode", "3");
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    StartFuzzing();
    MakeDisks();
    static const auto server = binder::SharedRefBase::make<DiskInfoService>();
    service = server.get();
    EXPECT_EQ(AServiceManager_registerLazyService(server->asBinder().get(), kInstance), STATUS_OK);
    std::thread(ABinderProcess_joinThreadPool).detach();
    static const auto client = binder::SharedRefBase::make<BpDiskInfoService>(
        binder::StrongBinder(AServiceManager_checkService(kInstance)));
    good_client = client.get();

    std::optional<DiskInfoParcel> info;
    std::optional<FilesystemInfoParcel> filesystem;
    EXPECT_TRUE(client->getDiskInfo(&info).isOk());
    EXPECT_EQ(info->ufs()->vendor, "ACME");
    EXPECT_TRUE(client->getFilesystemInfo("metadata", &filesystem).isOk());
    EXPECT_EQ(filesystem->errorCount, 12);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    std::vector<Bytes> messages;
    while (!input.empty() && messages.size() < kMostMessages) {
        messages.push_back(NextMessage(&input));
    }
    const int fd = Connect();
    // All at once: the service may close before the last is sent.
    for (const Bytes& m : messages) (void)send(fd, m.data(), m.size(), MSG_NOSIGNAL);
    for (const Bytes& message : messages) {
        const Bytes reply = Receive(fd);
        if (!IsGood(message)) {
            EXPECT_TRUE(reply.empty());
            break;
        }
        ExpectReply(reply, Word(message, 4), std::span(message).subspan(12));
    }
    close(fd);

    int32_t version = 0;
    EXPECT_TRUE(good_client->getInterfaceVersion(&version).isOk());
    EXPECT_EQ(version, 1);
    return 0;
}
