# Completion of disk_info(1) for bash.
# shellcheck shell=bash
_disk_info() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} one
  local commands='status info health power fs check metrics' options='--json --watch --color --openmetrics --timeout --help --version'
  case $before in
    fs) commands='userdata metadata' ;;
    --color) commands='auto always never' ;;
    --watch | --timeout)
      COMPREPLY=()
      return
      ;;
    *)
      for one in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [[ " $commands " != *" $one "* ]] || commands=''
      done
      ;;
  esac
  [[ $word != -* ]] || commands=$options
  mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$word")
}
complete -F _disk_info disk_info
