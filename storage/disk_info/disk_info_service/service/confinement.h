// Reduces the system calls that this process can make to those that serving takes. The filter stays
// until the process ends and nothing lifts it. It limits an attacker who runs code in the daemon:
// above all that code cannot write to a disk, although the daemon opens NVMe disks for writing.
#pragma once

namespace morsk::com::quendar::tavisk::disk_info {

// Installs the filter. Call it with one thread, the service registered and the standard streams
// open. From then on a call that is not allowed fails with EPERM, and one of another architecture
// ends the process. False: the kernel refused; errno has the reason. A kernel without
// system call filters, and a machine that the filter is not written for (it is for x86-64, arm64
// and 64-bit RISC-V), is no failure but one WARNING record: the answers are still right.
//
// Builds with a sanitizer get no filter: the sanitizers start threads and open files when they
// report.
[[nodiscard]] bool ConfineProcess();

}  // namespace morsk::com::quendar::tavisk::disk_info
