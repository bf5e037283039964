# Completion for OmbreluxCLI and Ombrelux. Commands, options and the words that some options take are read from the
# program's own help, once a shell.
_ombrelux() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} words=
  COMPREPLY=()
  [ -n "${_ombrelux_help:-}" ] || _ombrelux_help=$("$1" help 2>/dev/null)
  if [ "$COMP_CWORD" -eq 1 ]; then
    words=$(sed -n '/^Commands:/,/^$/s/^  \([a-z][a-z]*\).*/\1/p' <<<"$_ombrelux_help")
    [ "${1##*/}" = Ombrelux ] && compopt -o default
  elif [[ $current == -* ]]; then
    words=$(sed -n 's/^  \(--[a-z-]*\).*/\1/p' <<<"$_ombrelux_help")
  else
    case $previous in
      --technique) words='vanilla mcmc' ;;
      --kind) words='images video video360 dualfisheye' ;;
      --from) words='frames sparse' ;;
      --matcher) words='exhaustive sequential vocab_tree' ;;
      --mapper) words='incremental global' ;;
      --camera-retries) words='auto off' ;;
      --out) compopt -o dirnames && return ;;
      *) compopt -o default && return ;;
    esac
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}
complete -F _ombrelux OmbreluxCLI Ombrelux
