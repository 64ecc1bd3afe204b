// Unions that carry the result of a call about the disk: an NVMe or a UFS parcelable.
#pragma once

#include <morsk/NvmeParcelables.h>
#include <morsk/UfsParcelables.h>

#include <utility>
#include <variant>

namespace morsk::com::quendar::tavisk::disk_info {

// Always holds exactly one arm; a default-constructed union holds a default `nvme` arm. On the
// wire: int32 tag, int32 1, the framed arm. The union itself has no frame.
template <typename Nvme, typename Ufs>
class DiskUnion {
  public:
    enum class Tag : int32_t { nvme = 0, ufs = 1 };

    DiskUnion() = default;
    DiskUnion(Nvme arm) : arm_(std::move(arm)) {}
    DiskUnion(Ufs arm) : arm_(std::move(arm)) {}

    Tag getTag() const { return static_cast<Tag>(arm_.index()); }

    // The arm; null if the union holds the other one.
    const Nvme* nvme() const { return std::get_if<Nvme>(&arm_); }
    const Ufs* ufs() const { return std::get_if<Ufs>(&arm_); }

    // The status of the first write that fails.
    binder_status_t writeToParcel(AParcel* parcel) const;
    // STATUS_BAD_VALUE: unknown tag; STATUS_UNEXPECTED_NULL: no arm. On failure the union is
    // unchanged. The daemon does not contain it.
    binder_status_t readFromParcel(const AParcel* parcel);

    bool operator==(const DiskUnion&) const = default;

  private:
    std::variant<Nvme, Ufs> arm_;
};

using DiskInfoParcel = DiskUnion<NvmeInfoParcel, UfsInfoParcel>;
using DiskHealthParcel = DiskUnion<NvmeHealthInfoParcel, UfsHealthInfoParcel>;
using DiskPowerParcel = DiskUnion<NvmePowerInfoParcel, UfsPowerInfoParcel>;

}  // namespace morsk::com::quendar::tavisk::disk_info
