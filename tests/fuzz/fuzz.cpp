// Foreign bytes on each way by which they reach the daemon's code. An input's first byte selects
// the way, the rest is what arrives. A property that does not hold prints both values and ends the
// process, and the fuzzer then keeps the input.
#include <binder/parcel_utils.h>
#include <binder/process.h>
#include <daemon.h>
#include <device_tree.h>
#include <disk_info/ufs_info.h>
#include <linux/fs.h>
#include <linux/nvme_ioctl.h>
#include <logging/logging.h>
#include <message.h>
#include <service/DiskInfoService.h>
#include <strings.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <span>
#include <thread>
#include <vector>

using namespace morsk::com::quendar::tavisk::disk_info;
using namespace orvane::tavisk::disk_info;
namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<uint8_t>;

constexpr char kUserdata[] = "/dev/block/by-name/userdata";

std::shared_ptr<DiskInfoService> service;
std::shared_ptr<Service> good_client;

// The input, eaten from the front. Past its end come zeros and nothing.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : rest_(data, size) {}

    bool empty() const { return rest_.empty(); }
    uint8_t Byte() {
        const Bytes byte = Take(1);
        return byte.empty() ? uint8_t{0} : byte[0];
    }
    Bytes Take(size_t size) {
        const auto taken = rest_.first(std::min(size, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return {taken.begin(), taken.end()};
    }
    Bytes Rest() { return Take(SIZE_MAX); }

  private:
    std::span<const uint8_t> rest_;
};

// A third of the messages is raw; the others have a header, which may name another size. Some are
// about as large as the largest message.
Bytes NextMessage(Input& input) {
    constexpr int32_t kCodes[] = {4, 1, 2, 3, 0xfffffe, 0xffffff, 5, 0};
    const uint8_t choice = input.Byte();
    Bytes data = input.Take(input.Byte());
    if (choice % 3 == 0) return data;
    if (choice >= 0xF0) data.resize(binder::kMaxParcelBytes - 8 + choice % 16);
    const uint32_t lie = choice % 32 == 31 ? input.Byte() : 0;
    const binder::MessageHeader header = {binder::kRequestMagic, kCodes[choice / 3 % 8],
                                          uint32_t(data.size()) + lie};
    const auto* const bytes = reinterpret_cast<const uint8_t*>(&header);
    data.insert(data.begin(), bytes, bytes + sizeof header);
    return data;
}

// Whether a reply came instead of the connection's end.
bool ReceiveReply(int fd) {
    static binder::Message reply;
    const binder::ReceiveResult result = binder::Receive(fd, binder::kReplyMagic, &reply);
    EXPECT_NE(result, binder::ReceiveResult::kMalformed);
    if (result != binder::ReceiveResult::kMessage) return false;
    EXPECT_LE(reply.header.word, STATUS_OK);
    AParcel parcel;
    parcel.Assign(reply.data());
    binder::ScopedStatus status;
    if (reply.header.word == STATUS_OK) {
        EXPECT_EQ(AParcel_readStatusHeader(&parcel, status.slot()), STATUS_OK);
    } else {
        EXPECT_EQ(reply.header.size, 0U);
    }
    return true;
}

// To the served service: a request is answered, anything else ends its connection. A good client is
// answered afterwards.
void SendMessages(Input& input) {
    WriteLink(kUserdata, "/dev/block/sda2");
    WriteFile("/sys/file", "");
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un address{AF_UNIX, {}};
    std::strcpy(address.sun_path, kPath);
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    bool open = true;
    while (open && !input.empty()) {
        const Bytes message = NextMessage(input);
        binder::MessageHeader header{};
        if (message.size() >= sizeof header) std::memcpy(&header, message.data(), sizeof header);
        const bool good = header.magic == binder::kRequestMagic &&
                          header.size == message.size() - 12 && header.size <= 65536;
        (void)send(fd, message.data(), message.size(), MSG_NOSIGNAL);
        open = ReceiveReply(fd);
        EXPECT_EQ(open, good);
    }
    (void)shutdown(fd, SHUT_WR);
    EXPECT_FALSE(ReceiveReply(fd));
    close(fd);
    std::optional<DiskInfoParcel> info;
    EXPECT_TRUE(good_client->getDiskInfo(&info).isOk());
}

// What was read is written, and reads again to the same bytes.
template <typename Value>
void ReadAndWrite(const AParcel* parcel) {
    std::optional<Value> value;
    const binder_status_t status = AParcel_readNullableData(parcel, &value);
    EXPECT_LE(parcel->position, parcel->data.size());
    if (status != STATUS_OK) EXPECT_FALSE(value);
    AParcel written, again;
    EXPECT_EQ(AParcel_writeNullableData(&written, value), STATUS_OK);
    const Bytes bytes = written.data;
    (void)AParcel_setDataPosition(&written, 0);
    EXPECT_EQ(AParcel_readNullableData(&written, &value), STATUS_OK);
    EXPECT_EQ(written.position, bytes.size());
    EXPECT_EQ(AParcel_writeNullableData(&again, value), STATUS_OK);
    EXPECT_EQ(again.data, bytes);
}

// The kinds of values that the input chooses, one after the other from one parcel.
void ReadParcel(Input& input) {
    constexpr void (*kReads[])(const AParcel*) = {
        ReadAndWrite<DiskInfoParcel>, ReadAndWrite<DiskHealthParcel>, ReadAndWrite<DiskPowerParcel>,
        ReadAndWrite<FilesystemInfoParcel>, [](const AParcel* parcel) {
            binder::ScopedStatus status;
            (void)AParcel_readStatusHeader(parcel, status.slot());
        }};
    const Bytes choices = input.Take(input.Byte() % 8);
    AParcel parcel;
    parcel.Assign(input.Rest());
    for (const uint8_t choice : choices) kReads[choice % std::size(kReads)](&parcel);
}

// Whether the text ends in the number, as printing it in the text's base does; zeros may lie
// between it and a sign.
template <typename Number>
bool EndsIn(const std::string& text, Number number) {
    char digits[24];
    std::snprintf(digits, sizeof digits, "%lx", static_cast<unsigned long>(number));
    const bool hexadecimal = text.find_first_of("xX") != std::string::npos;
    const std::string printed = hexadecimal ? digits : std::to_string(number);
    const size_t sign = printed.find('-') + 1;
    return text.size() >= printed.size() && (sign > 0) == (text.find('-') != std::string::npos) &&
           strcasecmp(&text[text.size() - printed.size() + sign], &printed[sign]) == 0;
}

// One text in all attributes of a UFS disk and a filesystem.
void ReadAttributes(Input& input) {
    const Bytes bytes = input.Rest();
    const std::string content(bytes.begin(), bytes.end());
    WriteLink(kUserdata, "/dev/block/sda2");
    WriteFile("/sys/file", content);
    std::optional<DiskInfoParcel> info;
    std::optional<DiskHealthParcel> health;
    std::optional<FilesystemInfoParcel> filesystem;
    EXPECT_TRUE(service->getDiskInfo(&info).isOk());
    EXPECT_TRUE(service->getFilesystemInfo("userdata", &filesystem).isOk());
    const std::string& line = filesystem->lastErrorFunction;
    EXPECT_EQ((content + "\n").substr(0, line.size() + 1), line + "\n");
    for (const int64_t count : {filesystem->errorCount, int64_t{filesystem->lastErrorCode}}) {
        EXPECT_TRUE(count == 0 || EndsIn(line, count)) << count;
    }
    const std::string& text = info->ufs()->vendor;
    EXPECT_NE(line.find(text), std::string::npos);
    EXPECT_EQ(service->getDiskHealth(&health).isOk(), !text.empty());
    if (text.empty()) return;
    EXPECT_FALSE(isspace(uint8_t(text.front())) || isspace(uint8_t(text.back()))) << text;
    const auto number = static_cast<uint64_t>(health->ufs()->totalNumberOfErrors);
    EXPECT_TRUE(number == 0 || EndsIn(text, number)) << number;
    const std::pair<int32_t, uint32_t> narrow[] = {
        {info->ufs()->provisioningType, 0xFF},
        {info->ufs()->specVersion, 0xFFFF},
        {info->ufs()->writeBoosterMaxAllocUnits, 0xFFFFFFFF}};
    for (const auto& [field, max] : narrow) EXPECT_EQ(uint32_t(field), number > max ? 0 : number);
}

Input* driver;  // what an NVMe disk's driver answers; null: there is none

void ReadNvme(Input& input) {
    WriteLink(kUserdata, "/dev/block/nvme0n1p5");
    driver = &input;
    std::optional<DiskInfoParcel> info;
    std::optional<DiskHealthParcel> health;
    std::optional<DiskPowerParcel> power;
    EXPECT_TRUE(service->getDiskInfo(&info).isOk());
    (void)service->getDiskHealth(&health);
    EXPECT_TRUE(service->getDiskPower(&power).isOk());
    driver = nullptr;
    const NvmeInfoParcel& identity = *info->nvme();
    EXPECT_TRUE(identity.type == "NVMe" || identity == NvmeInfoParcel{.size = identity.size});
    EXPECT_LE(identity.modelNumber.size(), 40U);
    EXPECT_LE(identity.serialNumber.size(), 20U);
    EXPECT_LE(identity.firmwareRevision.size(), 8U);
    EXPECT_LT(power->nvme()->currentPowerState, 32);
    EXPECT_GE(power->nvme()->currentPowerState, power->nvme()->isOperational ? 0 : -1);
}

// A UFS disk whose directory has the names that the input chooses.
void FindUfsPaths(Input& input) {
    const std::string kNames[] = {"host0",   "scsi_host", "host", "a", "b", "Host1",
                                  "0:0:0:0", "ho",        ".",    "",  "x", std::string(250, 'h')};
    std::string directory = "/sys/tree";
    while (!input.empty()) directory += "/" + kNames[input.Byte() % std::size(kNames)];
    std::error_code error;
    fs::create_directories(directory, error);
    fs::create_symlink(directory, "/sys/block/sdb", error);
    UfsInfo ufs("sdb");
    std::string scsi, host;
    const bool found = ufs.GetUfsHostPath(&host);
    if (ufs.GetUfsScsiDevicePath(&scsi)) {
        EXPECT_EQ(scsi, fs::canonical(directory).parent_path().parent_path());
        // The nearest name that begins so, if it is among the last ten.
        const size_t name = std::min(scsi.rfind("/host"), scsi.size());
        const auto names = std::count(scsi.begin() + name, scsi.end(), '/');
        EXPECT_EQ(found, names > 0 && names <= 10);
        EXPECT_EQ(host, found ? scsi.substr(0, name) : "");
    }
    fs::remove("/sys/block/sdb");
    fs::remove_all("/sys/tree");
}

}  // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (driver == nullptr) return int(syscall(SYS_ioctl, fd, request, argument));
    auto* const command = static_cast<nvme_passthru_cmd*>(argument);
    const uint8_t choice = driver->Byte();
    if (request == BLKGETSIZE64) std::memset(argument, choice, 8);
    if (request == NVME_IOCTL_ADMIN_CMD) {
        command->result = driver->Byte();
        // Like some drives it sends a whole page even where less was asked for.
        const Bytes piece = driver->Take(driver->Byte());
        auto* const page = reinterpret_cast<uint8_t*>(uintptr_t{command->addr});
        for (size_t i = 0; page != nullptr && !piece.empty() && i < 4096; ++i) {
            page[i] = piece[i % piece.size()];
        }
    }
    errno = EIO;
    return choice % 4 == 3 ? -1 : choice % 4 == 2 ? 0x2002 : 0;
}

// The private root can only be entered before there is a second thread.
extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    GTEST_FLAG_SET(throw_on_failure, true);
    logging::InitLogging(nullptr, [](auto...) {});
    EnterPrivateRoot();
    PlaceDevice();
    std::vector<fs::path> attributes;
    for (const auto& entry : fs::recursive_directory_iterator("/sys")) {
        if (entry.is_regular_file()) attributes.push_back(entry);
    }
    for (const fs::path& attribute : attributes) WriteLink(attribute, "/sys/file");
    WriteFile("/dev/block/nvme0n1", "");
    WriteFile("/dev/block/nvme0n1p5", "");
    service = binder::SharedRefBase::make<DiskInfoService>();
    EXPECT_EQ(AServiceManager_registerLazyService(service->asBinder().get(), kInstance), STATUS_OK);
    std::thread(ABinderProcess_joinThreadPool).detach();
    good_client = ConnectToService();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr void (*kWays[])(Input&) = {SendMessages, ReadParcel, ReadAttributes, ReadNvme,
                                         FindUfsPaths};
    Input input(data, size);
    const int free_descriptor = dup(0);
    close(free_descriptor);
    kWays[input.Byte() % std::size(kWays)](input);
    EXPECT_EQ(dup(0), free_descriptor) << "a descriptor stayed open";
    close(free_descriptor);
    return 0;
}
