# SPDX-License-Identifier: Apache-2.0
# Completion of quorvane for bash.

_quorvane() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local bmc="--bmc --user --password-file --password-stdin --rules --force --log --log-level"
  local command=${COMP_WORDS[1]} words=""
  COMPREPLY=()
  case $previous in
    --password-file | --rules | --log | --file | --image-file | \
      --share-password-file | --result | --output | --html | --address-file)
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return ;;
    --log-level)
      mapfile -t COMPREPLY < <(compgen -W "debug info warning error" -- "$current")
      return ;;
    --scenario)
      # The ready ones lie beside the folder of the completions.
      local ready=${BASH_SOURCE[0]%/bash-completion/*}/quorvane/scenarios name
      for name in "$ready"/*.json; do words+="$(basename "$name" .json) "; done
      mapfile -t COMPREPLY < <(compgen -f -W "$words" -- "$current")
      return ;;
    --bmc | --user | --share-user | --image | --target | --port | --bind)
      return ;;
  esac
  if ((COMP_CWORD == 1)); then
    words="update inventory chassis rules report simulate --help --version"
  else
    case $command in
      update)
        words="$bmc --file --image --image-file --share-user --share-password-file
          --verify-share-certificate --target --result --quiet --help" ;;
      inventory) words="$bmc --json --output --help" ;;
      chassis) words="$bmc --json --help" ;;
      report) words="--html --json --help" ;;
      simulate) words="--scenario --port --bind --address-file --quiet --help" ;;
      rules) ((COMP_CWORD == 2)) && words="check explain schema --help" ;;
    esac
  fi
  if [[ $current != -* && ($command == report || $command == rules) ]] &&
    [[ -z $words || $command == report ]]; then
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
  fi
}

complete -o filenames -F _quorvane quorvane
