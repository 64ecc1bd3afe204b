# The emulated machine of both guests: its data disk, QEMU, and the messages from guest to host. The
# scripts that boot a guest source this file in the project's root directory.
#
# The guest writes to its second serial port. Lines that start with @ are messages to the host; all
# other lines go to standard output:
#   @up             set-up is complete, the script starts
#   @monitor TEXT   send TEXT to QEMU's monitor
#   @exit STATUS    the script ended
# shellcheck shell=bash disable=SC2034  # Variables are for the scripts that source this file.

nvme_serial='QM 0042 b'
# Ceilings against hanging, some ten times what a busy machine takes.
set_up_limit_s=600
silence_limit_s=600
total_limit_s=3600

die() {
  echo "${0##*/}: $*" >&2
  exit 1
}

# The emulated architecture is DISK_INFO_ARCH, by default this machine's own. With
# DISK_INFO_KERNEL=oldkernel the kernel is that of the Debian release, not of its backports. DISK_INFO_QEMU
# replaces the installed QEMU.
arch=${DISK_INFO_ARCH:-$(dpkg --print-architecture)}
# On a busy machine, emulated ticks come too late for the x86 kernel's check of its timer, and it panics.
options=''
case $arch in
  amd64) qemu=(qemu-system-x86_64) serial=ttyS crc32c=crc32c_intel options=no_timer_check ;;
  arm64) qemu=(qemu-system-aarch64 -machine virt) serial=ttyAMA crc32c=crc32c_generic ;;
  *) die "unknown architecture '$arch'; use amd64 or arm64" ;;
esac
qemu[0]=${DISK_INFO_QEMU:-${qemu[0]}}
vm_dir=build/vm/$arch
preset=release
[[ $arch = "$(dpkg --print-architecture)" ]] || preset=$arch

mkdir -p "$vm_dir"
run_dir=$(mktemp -d "$PWD/$vm_dir/run.XXXXXX")
machine_pid=''
clean_up() {
  [[ -z $machine_pid ]] || kill "$machine_pid" 2>/dev/null || true
  rm -rf "$run_dir"
}
trap clean_up EXIT
trap 'exit 130' HUP INT PIPE TERM

kernel_dir=$vm_dir/${DISK_INFO_KERNEL:-kernel}
kernel=$(find -H "$kernel_dir/boot" -name 'vmlinuz-*' 2>/dev/null) ||
  die "no $kernel_dir; DISK_INFO_ARCH=$arch tools/packages vm oldkernel fetches it"
version=${kernel#*vmlinuz-}

# Unpacks kernel modules and their dependencies. Prints their names in the order of loading.
unpack_modules() { # directory module...
  local to=$1 tree=$kernel_dir path name
  shift
  for name; do
    /sbin/modprobe -d "$tree" -S "$version" --show-depends "$name"
  done | awk '$1 == "insmod" && !seen[$2]++ { print $2 }' | while read -r path; do
    name=$(basename "${path%.ko*}")
    case $path in
      *.xz) xz -dc "$path" ;;
      *.zst) zstd -dqc "$path" ;;
      *) cat "$path" ;;
    esac >"$to/$name.ko"
    echo "$name"
  done
}

# Prints the path of the disk image, which has a GPT with two ext4 partitions. Guests write to a
# snapshot, so each image is made once.
make_disk() { # nvme|ufs
  local image=build/vm/$1.img new=$run_dir/disk.img sector_size=512
  [[ $1 != ufs ]] || sector_size=4096
  if [[ ! $image -nt ${BASH_SOURCE[0]} ]]; then
    truncate -s 64M "$new"
    printf 'label: gpt\nsize=16MiB, name=metadata\nsize=46MiB, name=userdata\n' >"$run_dir/layout"
    {
      printf 'I\n%s\nw\n' "$run_dir/layout" | /sbin/fdisk -b "$sector_size" "$new" &&
        /sbin/mke2fs -q -t ext4 -b 4096 -E offset=$((1 << 20)) "$new" 16M &&
        /sbin/mke2fs -q -t ext4 -b 4096 -E offset=$((17 << 20)) "$new" 46M
    } >"$run_dir/disk.log" 2>&1 || die "cannot make the disk image: $(tail -n 3 "$run_dir/disk.log")"
    mv "$new" "$image"
  fi
  echo "$image"
}

# Boots the kernel and exits with the status of the guest's script. The console's output is kept in
# build/vm/ARCHITECTURE/console-GUEST-KIND.log. If DISK_INFO_ICOUNT, an argument of QEMU's -icount, is
# set, the guest has one CPU and its clock counts instructions.
run_machine() { # small|debian nvme|ufs initrd qemu-argument...
  local kind=$2 initrd=$3 console=$PWD/$vm_dir/console-$1-$2.log image
  local line ended='' limit=$set_up_limit_s phase='during set-up'
  shift 3
  image=$(make_disk "$kind")
  local disk=(-drive "file=$image,format=raw,if=none,id=data,snapshot=on")
  case $kind in
    nvme) disk+=(-device "nvme,id=disk,serial=$nvme_serial,drive=data") ;;
    ufs) disk+=(-device "ufs,id=disk" -device "ufs-lu,bus=disk,lun=0,drive=data") ;;
  esac
  local vcpus=(-accel 'tcg,thread=multi' -smp 2)
  [[ -z ${DISK_INFO_ICOUNT:-} ]] || vcpus=(-accel 'tcg,thread=single' -smp 1 -icount "$DISK_INFO_ICOUNT")
  mkfifo "$run_dir/monitor.in" "$run_dir/monitor.out"
  : >"$console"
  exec {output}< <(exec timeout -k 5 "$total_limit_s" "${qemu[@]}" "${vcpus[@]}" \
    -cpu max -m 512 -nodefaults -nic none -display none -no-reboot \
    -kernel "$kernel" -initrd "$initrd" "${disk[@]}" "$@" \
    -chardev "pipe,id=monitor,path=$run_dir/monitor" -mon chardev=monitor,mode=readline \
    -serial "file:$console" -serial stdio </dev/null 2>"$run_dir/qemu.log")
  machine_pid=$!
  while IFS= read -r -t "$limit" line <&"$output" || ended=$?; [[ -z $ended ]]; do
    case $line in
      @up) limit=$silence_limit_s phase='during its script' ;;
      '@monitor '*) echo "${line#@monitor }" 1<>"$run_dir/monitor.in" ;;
      '@exit '*) exit "${line#@exit }" ;;
      *) printf '%s\n' "$line" ;;
    esac
  done
  [[ $ended -gt 128 ]] && ended="printed nothing for $limit s" || ended='stopped'
  {
    echo "${0##*/}: the $kind guest $ended $phase; the end of $console:"
    cat "$run_dir/qemu.log"
    tail -n 20 "$console"
  } >&2
  exit 1
}
