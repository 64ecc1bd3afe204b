// A parcel from another process: every kind of value is read from it in an order that the input
// chooses. What was read is written, and what was written reads as the same again.
#include <binder/interface_utils.h>
#include <binder/parcel_utils.h>
#include <morsk/DiskParcelables.h>
#include <morsk/FilesystemInfoParcel.h>
#include <parcel.h>

#include <cstring>
#include <optional>
#include <string>
#include <utility>

#include "fuzz.h"

using namespace morsk::com::quendar::tavisk::disk_info;
using binder::ScopedStatus;

namespace {

// One way to read and write each kind of value.
template <typename T>
binder_status_t Read(const AParcel* parcel, T* value) {
    if constexpr (requires { value->readFromParcel(parcel); })
        return value->readFromParcel(parcel);
    else
        return AParcel_readData(parcel, value);
}
template <typename T>
binder_status_t Read(const AParcel* parcel, std::optional<T>* value) {
    return AParcel_readNullableData(parcel, value);
}
binder_status_t Read(const AParcel* parcel, ScopedStatus* value) {
    ScopedStatus read;
    const binder_status_t status = AParcel_readStatusHeader(parcel, read.slot());
    if (status == STATUS_OK) *value = std::move(read);
    return status;
}

template <typename T>
binder_status_t Write(AParcel* parcel, const T& value) {
    if constexpr (requires { value.writeToParcel(parcel); })
        return value.writeToParcel(parcel);
    else
        return AParcel_writeData(parcel, value);
}
template <typename T>
binder_status_t Write(AParcel* parcel, const std::optional<T>& value) {
    return AParcel_writeNullableData(parcel, value);
}
binder_status_t Write(AParcel* parcel, const ScopedStatus& value) {
    return AParcel_writeStatusHeader(parcel, value.get());
}

// Compared as bytes: a float may be no number, and is then unequal to itself.
template <typename T>
Bytes Written(const T& value) {
    AParcel parcel;
    EXPECT_EQ(Write(&parcel, value), STATUS_OK);
    return parcel.data;
}

// `value` holds something else than a default when it comes. One that is `plain` stands in the
// parcel as it is written, but for a string's padding, and is not passed when it cannot be read.
template <typename T>
void Check(const AParcel* parcel, T value, bool plain = false) {
    const Bytes before = Written(value);
    const size_t start = parcel->position;
    const binder_status_t status = Read(parcel, &value);
    ASSERT_LE(parcel->position, parcel->data.size());
    ASSERT_GE(parcel->position, start);
    const Bytes passed(parcel->data.begin() + start, parcel->data.begin() + parcel->position);
    const Bytes after = Written(value);
    if (status != STATUS_OK) {
        EXPECT_LT(status, 0);
        EXPECT_EQ(after, before);
        if (plain) EXPECT_EQ(passed, Bytes());
        return;
    }
    if (plain) {
        size_t padding = 0;
        if constexpr (requires { value.size(); }) padding = after.size() - (4 + value.size() + 1);
        EXPECT_EQ(after.size(), passed.size());
        EXPECT_EQ(Bytes(after.begin(), after.end() - padding),
                  Bytes(passed.begin(), passed.end() - padding));
    }
    AParcel again;
    again.Assign(after);
    EXPECT_EQ(Read(&again, &value), STATUS_OK);
    EXPECT_EQ(again.position, after.size());
    EXPECT_EQ(Written(value), after);
}

void Fill(std::string* text) {
    *text = "before";
}
template <typename Number>
void Fill(Number* number) {
    *number = Number{1};
}

template <typename Parcelable>
void CheckParcelable(const AParcel* parcel) {
    Parcelable value;
    forEachField<Parcelable>([&](const auto& field) { Fill(&(value.*field.member)); });
    Check(parcel, value);
}

template <typename Value>
void CheckDefault(const AParcel* parcel) {
    Check(parcel, Value());
}

void (*const kReads[])(const AParcel*) = {
    [](const AParcel* parcel) { Check(parcel, int32_t{7}, true); },
    [](const AParcel* parcel) { Check(parcel, int64_t{7}, true); },
    [](const AParcel* parcel) { Check(parcel, true, true); },
    [](const AParcel* parcel) { Check(parcel, 7.0F, true); },
    [](const AParcel* parcel) { Check(parcel, std::string("before"), true); },
    [](const AParcel* parcel) { Check(parcel, ScopedStatus::fromServiceSpecificError(7), true); },
    CheckParcelable<NvmeInfoParcel>,
    CheckParcelable<NvmeHealthInfoParcel>,
    CheckParcelable<NvmePowerInfoParcel>,
    CheckParcelable<UfsInfoParcel>,
    CheckParcelable<UfsHealthInfoParcel>,
    CheckParcelable<UfsPowerInfoParcel>,
    CheckParcelable<FilesystemInfoParcel>,
    CheckDefault<DiskInfoParcel>,
    CheckDefault<DiskHealthParcel>,
    CheckDefault<DiskPowerParcel>,
    CheckDefault<std::optional<DiskInfoParcel>>,
    [](const AParcel* parcel) {
        Check(parcel, DiskPowerParcel(UfsPowerInfoParcel{"before", true}));
    },
    [](const AParcel* parcel) {
        Check(parcel, std::optional(FilesystemInfoParcel{7, "before", 7, ""}));
    }};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    StartFuzzing();
    return 0;
}

// A number of reads, one byte for each that tells what is read, and the parcel's bytes.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const auto choices = input.Take(input.Byte() % 16);
    AParcel parcel;
    parcel.Assign(input.Rest());
    for (const uint8_t choice : choices) kReads[choice % std::size(kReads)](&parcel);
    return 0;
}
