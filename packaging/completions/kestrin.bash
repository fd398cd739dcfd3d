# bash completion for kestrin(1).

_kestrin() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command='' i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      demo | scan | monitor | send | frame | replay | timeline | doctor)
        command=${COMP_WORDS[i]}
        break
        ;;
    esac
  done
  case $before in
    --radio)
      mapfile -t COMPREPLY < <(compgen -W 'bluez simulated' -- "$word")
      return
      ;;
    --adapter)
      mapfile -t COMPREPLY < <(compgen -W "$(ls /sys/class/bluetooth 2>/dev/null)" -- "$word")
      return
      ;;
    --record | --output)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return
      ;;
    --for | --timeout | --from | --to) return ;;
  esac
  local radio='--radio --adapter --log --record' words=--help
  case $command in
    '') words='demo scan monitor send frame replay timeline doctor --help --version' ;;
    demo) words+=' --virtual-time --log --record' ;;
    scan) words+=" --for --json $radio" ;;
    monitor) words+=" --timeout --json $radio" ;;
    send) words+=" --for --timeout --json $radio" ;;
    timeline) words+=' --sequence --from --to --output' ;;
    doctor) words+=' --adapter' ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
  if [[ $command == replay || $command == timeline ]] && [[ $word != -* ]]; then
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
  fi
}
complete -F _kestrin kestrin
