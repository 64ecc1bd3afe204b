// Restricts the process to the system calls that serving needs, permanently. Limits what an
// attacker who executes code in the daemon can do: the process cannot change a disk by a write, a
// shared mapping or an ioctl of the block layer. NVMe admin commands stay allowed, including those
// that erase a disk, because a filter cannot inspect them.
#pragma once

namespace morsk::com::quendar::tavisk::disk_info {

// Installs the filter. Requires one thread, a registered service and open standard streams.
// Afterwards a call that is not allowed fails with EPERM, and a call of another architecture kills
// the process. False: the kernel refused; errno holds the reason. On a kernel without system call
// filters, or on an architecture other than x86-64, arm64 and 64-bit RISC-V, logs one WARNING and
// returns true.
//
// Builds with a sanitizer get no filter: sanitizers start threads and open files to report.
[[nodiscard]] bool ConfineProcess();

}  // namespace morsk::com::quendar::tavisk::disk_info
