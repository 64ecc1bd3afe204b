#include <binder/parcel_utils.h>
#include <morsk/DiskParcelables.h>
#include <morsk/FilesystemInfoParcel.h>

#include <utility>

namespace morsk::com::quendar::tavisk::disk_info {

template <typename Parcelable>
binder_status_t readFramed(const AParcel* parcel, Parcelable* value) {
    const int32_t start = AParcel_getDataPosition(parcel);
    int32_t size = 0;
    if (binder_status_t status = AParcel_readInt32(parcel, &size)) return status;
    if (size < 4 || size > AParcel_getDataSize(parcel) - start) return STATUS_BAD_VALUE;
    const int32_t end = start + size;
    Parcelable read;
    binder_status_t status = STATUS_OK;
    forEachField<Parcelable>([&](const auto& field) {
        if (status != STATUS_OK || AParcel_getDataPosition(parcel) == end) return;
        status = AParcel_readData(parcel, &(read.*field.member));
        if (status == STATUS_OK && AParcel_getDataPosition(parcel) > end) status = STATUS_BAD_VALUE;
    });
    if (status == STATUS_OK) status = AParcel_setDataPosition(parcel, end);
    if (status == STATUS_OK) *value = std::move(read);
    return status;
}

namespace {

template <typename Arm, typename Union>
binder_status_t readArm(const AParcel* parcel, Union* result) {
    Arm arm;
    if (binder_status_t status = arm.readFromParcel(parcel)) return status;
    *result = Union(std::move(arm));
    return STATUS_OK;
}

}  // namespace

template <typename Nvme, typename Ufs>
binder_status_t DiskUnion<Nvme, Ufs>::readFromParcel(const AParcel* parcel) {
    int32_t tag = 0;
    int32_t present = 0;
    if (binder_status_t status = AParcel_readInt32(parcel, &tag)) return status;
    if (tag != static_cast<int32_t>(Tag::nvme) && tag != static_cast<int32_t>(Tag::ufs)) {
        return STATUS_BAD_VALUE;
    }
    if (binder_status_t status = AParcel_readInt32(parcel, &present)) return status;
    if (present == 0) return STATUS_UNEXPECTED_NULL;
    if (present != 1) return STATUS_BAD_VALUE;
    return tag == static_cast<int32_t>(Tag::nvme) ? readArm<Nvme>(parcel, this)
                                                  : readArm<Ufs>(parcel, this);
}

// All instantiations of the readers: other translation units see only their declarations.
template binder_status_t readFramed(const AParcel*, NvmeInfoParcel*);
template binder_status_t readFramed(const AParcel*, NvmeHealthInfoParcel*);
template binder_status_t readFramed(const AParcel*, NvmePowerInfoParcel*);
template binder_status_t readFramed(const AParcel*, UfsInfoParcel*);
template binder_status_t readFramed(const AParcel*, UfsHealthInfoParcel*);
template binder_status_t readFramed(const AParcel*, UfsPowerInfoParcel*);
template binder_status_t readFramed(const AParcel*, FilesystemInfoParcel*);
template binder_status_t DiskInfoParcel::readFromParcel(const AParcel*);
template binder_status_t DiskHealthParcel::readFromParcel(const AParcel*);
template binder_status_t DiskPowerParcel::readFromParcel(const AParcel*);

}  // namespace morsk::com::quendar::tavisk::disk_info
