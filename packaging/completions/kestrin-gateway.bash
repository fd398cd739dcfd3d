# bash completion for kestrin-gateway(1).

_kestrin_gateway() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command='' i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      run | check-config | log | tail | export | consume | status)
        command=${COMP_WORDS[i]}
        break
        ;;
    esac
  done
  case $before in
    --sent | --taken | --csv | --jsonl | --sqlite | --state | --password-file | --token-file | --ca | --certificate | --key)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return
      ;;
    --host)
      mapfile -t COMPREPLY < <(compgen -A hostname -- "$word")
      return
      ;;
    --gateway | --name | --port | --user | --from | --count | --url) return ;;
  esac
  local words=--help
  case $command in
    '') words='run check-config log tail export consume status --help --version' ;;
    run) words+=' --log --sent --taken' ;;
    tail) words+=' --from --count --text' ;;
    export) words+=' --csv --jsonl --sqlite --force' ;;
    consume)
      words+=' --gateway --name --state --host --port --user --password-file --tls --ca --certificate --key'
      ;;
    status) words+=' --url --token-file --ca --json' ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
  case $command in
    '' | consume) return ;;
  esac
  if [[ $word != -* ]]; then
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
  fi
}
complete -F _kestrin_gateway kestrin-gateway
