// The road from a raw message to its reply: the real service, served in a thread of this process.
// An input is a list of messages from one client; another, well-behaved client must not notice.
#include <binder/parcel_utils.h>
#include <binder/process.h>
#include <daemon.h>
#include <device_tree.h>
#include <message.h>
#include <service/DiskInfoService.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <optional>
#include <thread>
#include <vector>

#include "fuzz.h"

using namespace morsk::com::quendar::tavisk::disk_info;

namespace {

constexpr size_t kMostMessages = 8;  // as many replies as surely fit into a client's queue
constexpr uint32_t kCodes[] = {4, 1, 2, 3, 0xfffffe, 0xffffff, 5, 0};
constexpr uint32_t kRequest = 0x51726942, kReply = 0x50726942;

std::shared_ptr<DiskInfoService> service;
std::shared_ptr<Service> good_client;

uint32_t Word(const Bytes& bytes, size_t offset) {
    uint32_t word = 0;
    std::memcpy(&word, &bytes[offset], sizeof word);
    return word;
}

Bytes Message(uint32_t magic, uint32_t word, const Bytes& data, uint32_t lie = 0) {
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
    const auto taken = input->Take(input->Byte());
    Bytes data(taken.begin(), taken.end());
    if (choice % 3 == 0) return data;
    if (choice >= 0xF0) data.resize(65536 - 8 + choice % 16);
    return Message(kRequest, kCodes[choice / 3 % 8], data, choice % 32 == 31 ? input->Byte() : 0);
}

bool IsGood(const Bytes& message) {
    return message.size() >= 12 && message.size() <= 12 + 65536 && Word(message, 0) == kRequest &&
           Word(message, 8) == message.size() - 12;
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

// What the same call gives without a transport in between.
Bytes WantedReply(const Bytes& message) {
    const uint32_t code = Word(message, 4);
    const binder::StrongBinder local = service->asBinder();
    auto* request = new AParcel;
    request->Assign(std::span(message).subspan(12));
    binder::ScopedParcel reply;
    const auto status = AIBinder_transact(local.get(), code, &request, reply.slot(), 0);
    if (status != STATUS_OK) return Message(kReply, static_cast<uint32_t>(status), {});
    if (code == 1) ExpectParses<DiskInfoParcel>(reply.get());
    if (code == 2) ExpectParses<DiskHealthParcel>(reply.get());
    if (code == 3) ExpectParses<DiskPowerParcel>(reply.get());
    if (code == 4) ExpectParses<FilesystemInfoParcel>(reply.get());
    return Message(kReply, 0, reply.get()->data);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    StartFuzzing();
    PlaceDevice();
    service = binder::SharedRefBase::make<DiskInfoService>();
    EXPECT_EQ(AServiceManager_registerLazyService(service->asBinder().get(), kInstance), STATUS_OK);
    std::thread(ABinderProcess_joinThreadPool).detach();
    good_client = ConnectToService();
    std::optional<DiskInfoParcel> info;
    EXPECT_TRUE(good_client->getDiskInfo(&info).isOk());
    EXPECT_EQ(info->ufs()->vendor, "V");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    std::vector<Bytes> messages;
    while (!input.empty() && messages.size() < kMostMessages) {
        messages.push_back(NextMessage(&input));
    }
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un address{AF_UNIX, {}};
    std::strcpy(address.sun_path, kPath);
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    // All at once: the service may close before the last is sent.
    for (const Bytes& m : messages) (void)send(fd, m.data(), m.size(), MSG_NOSIGNAL);
    for (const Bytes& message : messages) {
        const bool good = IsGood(message);
        EXPECT_EQ(Receive(fd), good ? WantedReply(message) : Bytes());
        if (!good) break;
    }
    close(fd);

    int32_t version = 0;
    EXPECT_TRUE(good_client->getInterfaceVersion(&version).isOk());
    EXPECT_EQ(version, 1);
    return 0;
}
