# bash completion for kestrin-vreader(1).

_kestrin_vreader() {
  local word=${COMP_WORDS[COMP_CWORD]}
  COMPREPLY=()
  case ${COMP_WORDS[COMP_CWORD - 1]} in
    --orders | --vhci)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return
      ;;
    --reader | --non-reader | --most-links) return ;;
    --air)
      mapfile -t COMPREPLY < <(compgen -W '1M none' -- "$word")
      return
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W '--help --reader --non-reader --orders --vhci --most-links --air --tell-notifications' -- "$word")
}
complete -F _kestrin_vreader kestrin-vreader
