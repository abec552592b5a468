# bash completion for vctk. Commands and options are what vctk itself tells with --help, so that
# none is forgotten.

# _vctk_help PROGRAM COMMAND...: the help of the innermost command.
_vctk_help() { "$@" --help 2>/dev/null; }

_vctk_commands() { sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z-]*\).*/\1/p' <<<"$1"; }
_vctk_options() { sed -n 's/^  \(-[^ ]*\).*/\1/p' <<<"$1" | tr ',' '\n'; }

# _vctk_value HELP OPTION: the kind of the option's value, empty for none.
_vctk_value() { sed -n "s/^  \(.*,\)\{0,1\}$2 \([A-Z][A-Z=]*\) .*/\2/p" <<<"$1"; }

_vctk() {
  local program=$1 current=$2 previous=$3 path=() word help words=
  help=$(_vctk_help "$program")
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    grep -qxF -e "$word" <<<"$(_vctk_commands "$help")" || continue
    path+=("$word")
    help=$(_vctk_help "$program" "${path[@]}")
  done
  COMPREPLY=()
  case $previous:$(_vctk_value "$help" "$previous") in
    *:SERIAL) words=$("$program" certs 2>/dev/null </dev/null | awk 'NR > 1 {print $1}') ;;
    *:NAME=VALUE)
      words=$(sed -n 's/.*NAME is one of //p' <<<"$help" | head -n 1 | tr -d ',' | sed 's/[^ ]*/&=/g')
      compopt -o nospace
      ;;
    --digest:*) words='MD5 SHA1 SHA256 SHA512 SM3' ;;
    -*:?*) compopt -o default && return ;;
    *)
      words=$(_vctk_commands "$help")
      if [[ $current == -* ]]; then
        words=$(_vctk_options "$help")
      elif [ -z "$words" ]; then
        compopt -o default
      fi
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}
complete -F _vctk vctk
