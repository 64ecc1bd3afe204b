# Starts the daemon in the small guest. Its log records go to the console.
# shellcheck shell=dash disable=SC1091,SC2034,SC2154
. /checks.sh

start_service() {
  disk_info_service >/dev/console 2>&1 &
  service_pid=$!
  wait_until test -S "$socket" && return
  echo "the daemon did not bind $socket"
  exit 1
}
