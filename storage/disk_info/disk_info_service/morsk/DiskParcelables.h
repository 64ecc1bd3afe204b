// The unions that carry one answer about the disk, whatever its kind.
#pragma once

#include <morsk/NvmeParcelables.h>
#include <morsk/UfsParcelables.h>

#include <utility>
#include <variant>

namespace morsk::com::quendar::tavisk::disk_info {

// Holds exactly one arm at any time; a default-made one holds an `nvme` arm of defaults. On the
// wire: int32 tag, int32 1, the framed arm; the union has no frame of its own.
template <typename Nvme, typename Ufs>
class DiskUnion {
  public:
    enum class Tag : int32_t { nvme = 0, ufs = 1 };

    DiskUnion() = default;
    DiskUnion(Nvme arm) : arm_(std::move(arm)) {}
    DiskUnion(Ufs arm) : arm_(std::move(arm)) {}

    Tag getTag() const { return static_cast<Tag>(arm_.index()); }

    // The held arm; null when the other one is held.
    const Nvme* nvme() const { return std::get_if<Nvme>(&arm_); }
    const Ufs* ufs() const { return std::get_if<Ufs>(&arm_); }

    // The first failing write's status.
    binder_status_t writeToParcel(AParcel* parcel) const;
    // STATUS_BAD_VALUE for an unknown tag, STATUS_UNEXPECTED_NULL for a missing arm. On any
    // failure the union is as it was.
    binder_status_t readFromParcel(const AParcel* parcel);

    bool operator==(const DiskUnion&) const = default;

  private:
    std::variant<Nvme, Ufs> arm_;
};

using DiskInfoParcel = DiskUnion<NvmeInfoParcel, UfsInfoParcel>;
using DiskHealthParcel = DiskUnion<NvmeHealthInfoParcel, UfsHealthInfoParcel>;
using DiskPowerParcel = DiskUnion<NvmePowerInfoParcel, UfsPowerInfoParcel>;

}  // namespace morsk::com::quendar::tavisk::disk_info
