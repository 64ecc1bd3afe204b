# Completion of disk_info(1) for fish.
set -l commands status info health power fs check metrics
set -l first "not __fish_seen_subcommand_from $commands"
set -l for_programs '__fish_seen_subcommand_from check metrics'

complete -c disk_info -f
complete -c disk_info -n $first -a status -d 'Summary, disk and filesystems (the default)'
complete -c disk_info -n $first -a info -d 'Identity and size of the disk'
complete -c disk_info -n $first -a health -d 'Wear, errors and a verdict'
complete -c disk_info -n $first -a power -d 'Current power state'
complete -c disk_info -n $first -a fs -d 'Error counters of an ext4 filesystem'
complete -c disk_info -n $first -a check -d 'Status for a monitoring system'
complete -c disk_info -n $first -a metrics -d 'All values for a collector'
complete -c disk_info -n '__fish_seen_subcommand_from fs' -a 'userdata metadata'
complete -c disk_info -n "not $for_programs" -l json -d 'Print one JSON document'
complete -c disk_info -n "not $for_programs" -l watch -x -d 'Repeat every SECONDS'
complete -c disk_info -n "not $for_programs" -l color -x -a 'auto always never' -d 'Colour and bars'
complete -c disk_info -n '__fish_seen_subcommand_from metrics' -l openmetrics -d 'Print OpenMetrics text'
complete -c disk_info -l timeout -x -d 'Wait at most SECONDS for the service'
complete -c disk_info -s h -l help -d 'Print the help'
complete -c disk_info -s V -l version -d 'Print the version'
