# What scripts in either guest check with, and how they end.
# shellcheck shell=dash disable=SC2034

socket=/run/binder/com.quendar.tavisk.disk_info.IDiskInfoService/default
passed=0 failed=0

check() { # what got want
  if [ "$2" = "$3" ]; then
    passed=$((passed + 1))
    echo "ok - $1"
  else
    failed=$((failed + 1))
    echo "not ok - $1 (got $2, want $3)"
  fi
}

# The closing line. Its status: whether something was checked and all of it passed.
sum_up() {
  echo "$passed passed, $failed failed"
  [ "$passed" -gt 0 ] && [ "$failed" -eq 0 ]
}

exit_of() { # What the command prints goes to /tmp/out.
  "$@" >/tmp/out 2>&1
  echo $?
}

value() { # field command... : the field as JSON text, quotes and all
  field=$1
  shift
  disk_info --json "$@" 2>/dev/null | sed -n "s/^ *\"$field\": //p" | sed 's/,$//'
}

wait_until() { # Polls "$@" for up to a minute. Its status: whether it came true.
  tries=0
  until "$@" >/dev/null 2>&1; do
    tries=$((tries + 1))
    [ "$tries" -lt 300 ] || return 1
    sleep 0.2
  done
}
