// Answers of the service as text that tests compare.
#pragma once

#include <binder/interface_utils.h>
#include <gtest/gtest.h>
#include <morsk/IDiskInfoService.h>
#include <morsk/fields.h>

#include <optional>
#include <sstream>
#include <string>

using namespace morsk::com::quendar::tavisk::disk_info;

// The fields in wire order, a bar before each; a union's text starts with the name of its arm.
template <typename Parcelable>
std::string TextOf(const Parcelable& value) {
    std::ostringstream text;
    forEachField<Parcelable>([&](const auto& field) { text << '|' << value.*field.member; });
    return text.str();
}
template <typename Nvme, typename Ufs>
std::string TextOf(const DiskUnion<Nvme, Ufs>& value) {
    return value.nvme() != nullptr ? "nvme" + TextOf(*value.nvme()) : "ufs" + TextOf(*value.ufs());
}

// The text of the result; without a result, the status as in kUnavailable.
template <typename Result, typename Method>
std::string AnswerOf(const Method& method) {
    std::optional<Result> result;
    const binder::ScopedStatus status = method(&result);
    EXPECT_EQ(result.has_value(), status.isOk());
    if (result) return TextOf(*result);
    return "exception " + std::to_string(AStatus_getExceptionCode(status.get())) + ", error " +
           std::to_string(AStatus_getServiceSpecificError(status.get()));
}

inline constexpr char kUnavailable[] = "exception -8, error -1";
inline constexpr char kBroken[] = "exception -129, error 0";  // no reply

// `question` is "info", "health", "power" or the name of a partition.
inline std::string Ask(IDiskInfoService& service, const std::string& question) {
    if (question == "info") {
        return AnswerOf<DiskInfoParcel>([&](auto* info) { return service.getDiskInfo(info); });
    }
    if (question == "health") {
        return AnswerOf<DiskHealthParcel>([&](auto* info) { return service.getDiskHealth(info); });
    }
    if (question == "power") {
        return AnswerOf<DiskPowerParcel>([&](auto* info) { return service.getDiskPower(info); });
    }
    return AnswerOf<FilesystemInfoParcel>(
        [&](auto* info) { return service.getFilesystemInfo(question, info); });
}
