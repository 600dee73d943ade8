# bash completion for tallyctl(1)

_tallyctl_types="host matrix pdist nlhost nlmatrix vlan prio dsstats dspdist dshost dsmatrix etherstats supvlan ifstats"

# The indexes of a type that have files.
_tallyctl_indexes() {
  local file
  for file in "${TALLYD_DIR:-/usr/local/apache/htdocs/tmp}/$1"_*_last.bin; do
    file=${file##*/"$1"_}
    [[ $file == *_last.bin ]] && printf '%s\n' "${file%_last.bin}"
  done
}

# The options of a command, as its help has them.
_tallyctl_options() {
  tallyctl "$1" --help 2>/dev/null | grep -oE -- '--[a-z-]+' | sort -u
}

# The columns of a type, as tallyctl has them.
_tallyctl_columns() {
  tallyctl show "$1" 0 --sort '?' 2>&1 | sed -n 's/.*columns are //; T; s/, /\n/g; p'
}

_tallyctl() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} words='' word
  COMPREPLY=()
  case $prev in
    --file) words="delta last prev" ;;
    --color) words="auto never" ;;
    --sort | --where | --column)
      for word in "${COMP_WORDS[@]:2:COMP_CWORD-2}"; do
        [[ " $_tallyctl_types " == *" $word "* ]] && words+=" $(_tallyctl_columns "$word")"
      done
      [[ -n $words ]] || return
      ;;
    --rrd | --csv)
      if [[ ${COMP_WORDS[1]} == record || $prev == --rrd ]]; then
        mapfile -t COMPREPLY < <(compgen -d -- "$cur")
        return
      fi
      ;;
    --textfile)
      mapfile -t COMPREPLY < <(compgen -f -- "$cur")
      return
      ;;
    host | matrix | pdist | nlhost | nlmatrix | vlan | prio | dsstats | dspdist | dshost | dsmatrix)
      words=$(_tallyctl_indexes "$prev")
      ;;
  esac
  if [[ -z $words && $COMP_CWORD -eq 1 ]]; then
    words="create destroy viewing view interval reload rescan stop show watch status check record history metrics --help --version"
  elif [[ -z $words ]]; then
    case ${COMP_WORDS[1]} in
      interval | reload | rescan | stop | status | check) ;;
      *) words=$_tallyctl_types ;;
    esac
    [[ -n $words && $cur != -* ]] || words+=" $(_tallyctl_options "${COMP_WORDS[1]}")"
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
}

complete -F _tallyctl tallyctl
