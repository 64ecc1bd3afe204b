# Starting and stopping the daemon in the guest. Its log records go to the console.
# shellcheck shell=dash disable=SC2034

socket=/run/binder/com.quendar.tavisk.disk_info.IDiskInfoService/default

# Polls "$@" for up to a minute. Its status: whether it came true.
wait_until() {
  tries=0
  until "$@"; do
    tries=$((tries + 1))
    [ "$tries" -lt 300 ] || return 1
    sleep 0.2
  done
}

start_service() {
  disk_info_service >/dev/console 2>&1 &
  service_pid=$!
  wait_until test -S "$socket" && return
  echo "the daemon did not bind $socket"
  exit 1
}
