// Fuzzes the ways by which foreign bytes reach the daemon's code. The first byte of an input
// selects the way, the rest are the bytes. If a property does not hold, the program prints it and
// aborts, and the fuzzer keeps the input.
#include <binder/parcel_utils.h>
#include <binder/process.h>
#include <daemon.h>
#include <linux/fs.h>
#include <linux/nvme_ioctl.h>
#include <logging/logging.h>
#include <parcel.h>
#include <raw_socket.h>
#include <service/DiskInfoService.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string_view>
#include <thread>
#include <vector>

using namespace morsk::com::quendar::tavisk::disk_info;
using namespace std::string_literals;
namespace fs = std::filesystem;

namespace {

constexpr char kUserdata[] = "/dev/block/by-name/userdata";

std::shared_ptr<DiskInfoService> service;
std::shared_ptr<Service> good_client;

// The input, read from its front. After its end it yields zeros and empty strings.
class Input {
  public:
    explicit Input(std::string_view bytes) : rest_(bytes) {}

    bool empty() const { return rest_.empty(); }
    uint8_t Byte() {
        const std::string byte = Take(1);
        return byte.empty() ? uint8_t{0} : static_cast<uint8_t>(byte[0]);
    }
    std::string Take(size_t size) {
        const std::string_view taken = rest_.substr(0, size);
        rest_.remove_prefix(taken.size());
        return std::string(taken);
    }
    std::string Rest() { return Take(rest_.size()); }

  private:
    std::string_view rest_;
};

std::string Word(size_t number) {
    const auto word = static_cast<uint32_t>(number);
    return {reinterpret_cast<const char*>(&word), sizeof(word)};
}

// One in three messages has no header of ours. The header may give a wrong size. Some messages are
// about as large as the largest one.
std::string NextMessage(Input& input) {
    constexpr uint32_t kCodes[] = {4, 1, 2, 3, 0xfffffe, 0xffffff, 5, 0};
    const uint8_t choice = input.Byte();
    std::string data = input.Take(input.Byte());
    if (choice % 3 == 0) return data;
    if (choice >= 0xF0) data.resize(65536 - 8 + choice % 16);
    const size_t excess = choice % 32 == 31 ? input.Byte() : 0;
    return "BirQ" + Word(kCodes[choice / 3 % 8]) + Word(data.size() + excess) + data;
}

bool IsWellFormed(const std::string& message) {
    return message.size() >= 12 && message.size() <= 12 + 65536 && message.starts_with("BirQ") &&
           message.substr(8, 4) == Word(message.size() - 12);
}

// The service replies to a well-formed request and closes the connection after anything else. It
// still answers another client.
void SendMessages(Input& input) {
    WriteLink(kUserdata, "/dev/block/sda2");
    const RawSocket client(kPath);
    client.Connect();
    for (bool open = true; open && !input.empty();) {
        const std::string message = NextMessage(input);
        open = IsWellFormed(message);
        (void)Send(client.Fd(), message);
        EXPECT_EQ(Receive(client).substr(0, 4), open ? "BirP" : "");
    }
    (void)shutdown(client.Fd(), SHUT_WR);
    EXPECT_EQ(Receive(client), "");  // when the service has closed its end
    std::optional<DiskInfoParcel> info;
    EXPECT_TRUE(good_client->getDiskInfo(&info).isOk());
}

// A value that was read can be written and read again, to the same bytes.
template <typename Value>
void ReadAndWrite(const AParcel* parcel) {
    std::optional<Value> value;
    const binder_status_t status = AParcel_readNullableData(parcel, &value);
    EXPECT_LE(AParcel_getDataPosition(parcel), AParcel_getDataSize(parcel));
    if (status != STATUS_OK) EXPECT_FALSE(value);
    AParcel written, again;
    EXPECT_EQ(AParcel_writeNullableData(&written, value), STATUS_OK);
    (void)AParcel_setDataPosition(&written, 0);
    EXPECT_EQ(AParcel_readNullableData(&written, &value), STATUS_OK);
    EXPECT_EQ(AParcel_getDataPosition(&written), AParcel_getDataSize(&written));
    EXPECT_EQ(AParcel_writeNullableData(&again, value), STATUS_OK);
    EXPECT_EQ(again.data, written.data);
}

// Reads values of the kinds that the input selects from one parcel.
void ReadParcel(Input& input) {
    constexpr void (*kReads[])(const AParcel*) = {
        ReadAndWrite<DiskInfoParcel>, ReadAndWrite<DiskHealthParcel>, ReadAndWrite<DiskPowerParcel>,
        ReadAndWrite<FilesystemInfoParcel>, [](const AParcel* parcel) {
            binder::ScopedStatus status;
            (void)AParcel_readStatusHeader(parcel, status.slot());
        }};
    const std::string choices = input.Take(input.Byte() % 8);
    const std::string bytes = input.Rest();
    AParcel parcel;
    parcel.Assign({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
    for (const char choice : choices) {
        kReads[static_cast<uint8_t>(choice) % std::size(kReads)](&parcel);
    }
}

void CallAllMethods() {
    std::optional<DiskInfoParcel> info;
    std::optional<DiskHealthParcel> health;
    std::optional<DiskPowerParcel> power;
    std::optional<FilesystemInfoParcel> filesystem;
    EXPECT_TRUE(service->getDiskInfo(&info).isOk());
    (void)service->getDiskHealth(&health);
    EXPECT_TRUE(service->getDiskPower(&power).isOk());
    EXPECT_TRUE(service->getFilesystemInfo("userdata", &filesystem).isOk());
}

// Every attribute of a UFS disk and a filesystem has the same content.
void ReadAttributes(Input& input) {
    WriteLink(kUserdata, "/dev/block/sda2");
    WriteFile("/sys/file", input.Rest());
    CallAllMethods();
}

Input* driver;  // the answers of the NVMe driver; null: there is no driver

void ReadNvme(Input& input) {
    WriteLink(kUserdata, "/dev/block/nvme0n1p5");
    driver = &input;
    CallAllMethods();
    driver = nullptr;
}

}  // namespace

extern "C" int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    if (driver == nullptr) return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
    const uint8_t choice = driver->Byte();
    if (request == BLKGETSIZE64) std::memset(argument, choice, 8);
    if (request == NVME_IOCTL_ADMIN_CMD) {
        auto* const command = static_cast<nvme_passthru_cmd*>(argument);
        command->result = driver->Byte();
        // Like some drives it returns a whole page, even if the command reads less.
        const std::string piece = driver->Take(driver->Byte());
        auto* const page = reinterpret_cast<char*>(uintptr_t{command->addr});
        for (size_t i = 0; page != nullptr && !piece.empty() && i < 4096; ++i) {
            page[i] = piece[i % piece.size()];
        }
    }
    errno = EIO;
    return choice % 4 == 3 ? -1 : choice % 4 == 2 ? 0x2002 : 0;
}

// Enters the private root while the process has one thread.
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
    for (const char* file : {"/sys/file", "/dev/block/nvme0n1"}) WriteFile(file, "");
    WriteFile("/dev/block/nvme0n1p5", "");
    service = binder::SharedRefBase::make<DiskInfoService>();
    EXPECT_EQ(AServiceManager_registerLazyService(service->asBinder().get(), kInstance), STATUS_OK);
    std::thread(ABinderProcess_joinThreadPool).detach();
    good_client = ConnectToService();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr void (*kWays[])(Input&) = {SendMessages, ReadParcel, ReadAttributes, ReadNvme};
    Input input({reinterpret_cast<const char*>(data), size});
    const int free_descriptor = dup(0);
    close(free_descriptor);
    kWays[input.Byte() % std::size(kWays)](input);
    EXPECT_EQ(dup(0), free_descriptor) << "a descriptor stayed open";
    close(free_descriptor);
    return 0;
}
