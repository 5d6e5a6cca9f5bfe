# Completion of quintral for bash, with or without the package bash-completion. It uses nothing that
# bash 3.2 lacks.
# Source this file, or install it as "quintral" in a folder of completions.

# Each option with the name of its argument, if it takes one. A test holds this list equal to the
# options of the program.
_quintral_options='
product name
productline name
product-version n
version-name text
machine-id text
os name
os-version text
processor-arch name
service host[:port]
proxy host:port
proxy-user user
proxy-pass password
password-file file
max-time seconds
json
quiet
exit-code
open
show-request
explain-proxy
record file
parse file
help
version
V
'

# Sets argument to the name of the argument that a word such as --parse takes; to an empty string
# if it takes none.
_quintral_argument_of() {
  local name
  argument=
  while read -r name argument; do
    [[ -n $name && ( $1 == "-$name" || $1 == "--$name" ) ]] && return
  done <<<"$_quintral_options"
  argument=
}

# Adds the files that begin with $1, with $2 before each. They are marked as file names where bash
# can do that for one completion (4.0 and later).
_quintral_add_files() {
  local file
  compopt -o filenames 2>/dev/null
  while IFS= read -r file; do
    COMPREPLY+=("$2$file")
  done < <(compgen -f -- "$1")
}

# Adds the options that begin with $1, with as many dashes as that has.
_quintral_add_options() {
  local name argument dash=-
  [[ $1 == --* ]] && dash=--
  while read -r name argument; do
    [[ -n $name && $dash$name == "$1"* ]] && COMPREPLY+=("$dash$name")
  done <<<"$_quintral_options"
}

# bash splits -parse=run into three words unless '=' was removed from COMP_WORDBREAKS.
_quintral() {
  local argument option attached=yes prefix=
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
  COMPREPLY=()
  if [[ $word == = ]]; then
    option=$before word=
  elif [[ $before == = && $COMP_CWORD -gt 2 ]]; then
    option=${COMP_WORDS[COMP_CWORD - 2]}
  elif [[ $word == -*=* ]]; then
    option=${word%%=*} prefix=$option= word=${word#*=}
  else
    option=$before attached=
  fi
  _quintral_argument_of "$option"
  if [[ $argument == file ]]; then
    _quintral_add_files "$word" "$prefix"
  elif [[ -z $argument && -z $attached ]]; then
    _quintral_add_options "$word"
  fi
}

if type compopt >/dev/null 2>&1; then
  complete -F _quintral quintral
else
  complete -o filenames -F _quintral quintral
fi
