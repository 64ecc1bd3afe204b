// Layout of a structured parcelable in a parcel: an int32 size, which counts itself and all fields,
// then the fields in the order of `kFields`. A reader continues at start plus size: it skips fields
// that a newer writer appended, and fields that an older writer lacks keep their defaults.
//
// The daemon contains the writer alone, a client both.
#pragma once

#include <binder/parcel.h>
#include <morsk/fields.h>

namespace morsk::com::quendar::tavisk::disk_info {

// The status of the first write that fails; the size is then still 0.
template <typename Parcelable>
binder_status_t writeFramed(AParcel* parcel, const Parcelable& value);

// STATUS_BAD_VALUE: the size is below 4, exceeds the data, or splits a field. On failure *value is
// unchanged.
template <typename Parcelable>
binder_status_t readFramed(const AParcel* parcel, Parcelable* value);

}  // namespace morsk::com::quendar::tavisk::disk_info
