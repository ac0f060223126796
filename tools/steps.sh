# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# For scripts that do one thing after another; to be sourced. At their end they say how long each took.
step_names=() step_seconds=()

# Runs the command, under a headline. One that fails ends the script.
step() {  # NAME COMMAND...
    printf '\n=== %s ===\n' "$1"
    step_names+=("$1")
    local begin=$SECONDS
    "${@:2}"
    step_seconds+=($((SECONDS - begin)))
}

tell_steps() {
    local status=$? row seconds sum=0
    printf '\n%-40s %8s\n' "step" "seconds"
    for row in "${!step_names[@]}"; do
        seconds=${step_seconds[row]:-failed}
        printf '%-40s %8s\n' "${step_names[row]}" "$seconds"
        [[ $seconds == failed ]] || sum=$((sum + seconds))
    done
    printf '%-40s %8s\n' "together" "$sum"
    exit "$status"
}
trap tell_steps EXIT
