# Functions with which the scripts of both guests check. They set no upper limit below a minute: an
# emulated machine may be ten times slower than usual.
# shellcheck shell=dash disable=SC2034

socket=/run/binder/com.quendar.tavisk.disk_info.IDiskInfoService/default
passed=0 failed=0

check() { # what got want
  if [ "$2" = "$3" ]; then
    passed=$((passed + 1))
    echo "ok - $1"
  else
    failed=$((failed + 1))
    echo "not ok - $1 (got '$2', want '$3')"
  fi
}

# Prints the result. Status: whether there were checks and all of them passed.
sum_up() {
  echo "$passed passed, $failed failed"
  [ "$passed" -gt 0 ] && [ "$failed" -eq 0 ]
}

disk_info() {
  command disk_info --timeout 60 "$@"
}

exit_of() { # Prints the exit status of a command, whose output goes to /tmp/out.
  "$@" >/tmp/out 2>&1
  echo $?
}

value() { # Prints a field of the JSON output's calls, as JSON: field disk_info-argument...
  field=$1
  shift
  disk_info --json "$@" 2>/dev/null | sed -n "/^  \"readings\"/q; s/^ *\"$field\": //p" | sed 's/,$//'
}

# Reads lines of disk_info's arguments, a field and its expected JSON value: "fs userdata: errorCount 0".
check_fields() {
  while read -r line; do
    arguments=${line%%:*} line=${line#*: }
    # shellcheck disable=SC2086
    check "$arguments: ${line%% *}" "$(value "${line%% *}" $arguments)" "${line#* }"
  done
}

wait_until() { # Repeats a command until it succeeds, for at least three minutes. Status: whether it did.
  tries=0
  until "$@" >/dev/null 2>&1; do
    tries=$((tries + 1))
    [ "$tries" -lt 900 ] || return 1
    sleep 0.2
  done
}

await() { # Waits for a command to succeed; it is a failed check if it does not.
  wait_until "$@" || check "$*" 'not within the time limit' 'success'
}
