# The emulated machine, whatever guest runs in it: its data disk, QEMU, and the talk between guest
# and host. For the scripts that boot a guest, which stand in the project's root directory.
#
# The guest's second serial port is its voice. A line beginning with @ is for the host, all others
# go to standard output:
#   @up             set-up is done, the script starts
#   @monitor TEXT   hand TEXT to QEMU's monitor
#   @exit STATUS    the script is done
# shellcheck shell=bash

nvme_serial='QM 0042 b'
up_limit_s=180
silence_limit_s=300
whole_limit_s=1500

die() {
  echo "${0##*/}: $*" >&2
  exit 1
}

# The emulated architecture is DISK_INFO_ARCH, by default this machine's own. With
# DISK_INFO_KERNEL=oldkernel the kernel is that of the Debian release, not of its backports.
arch=${DISK_INFO_ARCH:-$(dpkg --print-architecture)}
case $arch in
  amd64) qemu=(qemu-system-x86_64) serial=ttyS crc32c=crc32c_intel ;;
  arm64) qemu=(qemu-system-aarch64 -machine virt) serial=ttyAMA crc32c=crc32c_generic ;;
  *) die "unknown architecture '$arch'; there are amd64 and arm64" ;;
esac
vm_dir=build/vm/$arch
preset=release
[[ $arch = "$(dpkg --print-architecture)" ]] || preset=$arch

mkdir -p "$vm_dir"
run_dir=$(mktemp -d "$PWD/$vm_dir/run.XXXXXX")
machine_pid=''
leave() {
  [[ -z $machine_pid ]] || kill "$machine_pid" 2>/dev/null || true
  rm -rf "$run_dir"
}
trap leave EXIT
trap 'exit 130' HUP INT PIPE TERM

kernel_dir=$vm_dir/${DISK_INFO_KERNEL:-kernel}
kernel=("$kernel_dir"/boot/vmlinuz-*)
[[ -f ${kernel[0]} ]] ||
  die "no $kernel_dir; DISK_INFO_ARCH=$arch tools/packages vm oldkernel fetches it"
version=${kernel[0]#*vmlinuz-}

# Puts the kernel's modules $2 and on, and all that they need, into the directory $1, uncompressed.
# Prints their names in the order of loading.
unpack_modules() {
  local to=$1 tree=$kernel_dir path name
  shift
  [[ -e $tree/lib/modules ]] || ln -s usr/lib "$tree/lib"
  /sbin/depmod -b "$tree" "$version"
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

# Prints the path of the disk image for $1, nvme or ufs: a GPT with two ext4 partitions. Guests
# run on a snapshot of it, so it is made once.
make_disk() {
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

# Boots kernel $2 and initrd $3 with the disk $1, the rest being further QEMU arguments, and exits
# with the status of the guest's script. The console is kept in build/vm/ARCHITECTURE/console-$1.log. With
# DISK_INFO_ICOUNT, QEMU's argument of -icount, the guest's clock counts instructions, on one CPU.
run_machine() {
  local kind=$1 kernel=$2 initrd=$3 console=$PWD/$vm_dir/console-$1.log image
  local line ended='' limit=$up_limit_s phase='before it was up'
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
  exec {voice}< <(exec timeout -k 5 "$whole_limit_s" "${qemu[@]}" "${vcpus[@]}" \
    -cpu max -m 512 -nodefaults -nic none -display none -no-reboot \
    -kernel "$kernel" -initrd "$initrd" "${disk[@]}" "$@" \
    -chardev "pipe,id=monitor,path=$run_dir/monitor" -mon chardev=monitor,mode=readline \
    -serial "file:$console" -serial stdio </dev/null 2>"$run_dir/qemu.log")
  machine_pid=$!
  while IFS= read -r -t "$limit" line <&"$voice" || ended=$?; [[ -z $ended ]]; do
    case $line in
      @up) limit=$silence_limit_s phase='while its script ran' ;;
      '@monitor '*) echo "${line#@monitor }" 1<>"$run_dir/monitor.in" ;;
      '@exit '*) exit "${line#@exit }" ;;
      *) printf '%s\n' "$line" ;;
    esac
  done
  [[ $ended -gt 128 ]] && ended="said nothing for $limit s" || ended='stopped'
  {
    echo "${0##*/}: the $kind guest $ended $phase; the end of $console:"
    cat "$run_dir/qemu.log"
    tail -n 20 "$console"
  } >&2
  exit 1
}
