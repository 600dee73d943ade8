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

_tallyctl() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} words=
  COMPREPLY=()
  case $prev in
    --file) words="delta last prev" ;;
    --color) words="auto never" ;;
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
      create | destroy) words=$_tallyctl_types ;;
      viewing) words="$_tallyctl_types --keep" ;;
      view) words="$_tallyctl_types --every" ;;
      show) words="$_tallyctl_types --file --json --csv --top --sort --reverse --where --line-speed --no-notes --wide --si --resolve --color --wait" ;;
      watch) words="$_tallyctl_types --top --sort --reverse --where --line-speed --no-notes --wide --si --resolve --color --every --no-viewing --count --seconds" ;;
      status | check) words="--json" ;;
      record) words="$_tallyctl_types --rrd --csv --top --rows --seconds" ;;
      history) words="$_tallyctl_types --since --key --column --top --rrd --json --csv" ;;
      metrics) words="$_tallyctl_types --top --textfile --listen" ;;
    esac
    [[ $cur == -* || ${COMP_WORDS[1]} == status || ${COMP_WORDS[1]} == check ]] && words+=" --help"
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
}

complete -F _tallyctl tallyctl
