# bash completion of engr_app, engr_gatewayd, engr_gatewayctl, engr_replay and engr_session: the programs know
# their own words.

_engr_complete() {
    local program=${COMP_WORDS[0]} cur words cword answer word
    # Whole words: bash would cut them at "=" and ":".
    if declare -F _get_comp_words_by_ref >/dev/null; then
        _get_comp_words_by_ref -n =: cur words cword
    else
        cur=${COMP_WORDS[COMP_CWORD]} words=("${COMP_WORDS[@]}") cword=$COMP_CWORD
    fi
    COMPREPLY=()
    while IFS=$'\t' read -r word _; do
        if [ "$word" = ":files" ]; then
            compopt -o filenames
            while IFS= read -r answer; do
                COMPREPLY+=("$answer")
            done < <(compgen -f -- "$cur")
        else
            COMPREPLY+=("$word")
        fi
    done < <("$program" __complete "${words[@]:1:cword}" 2>/dev/null)
    if declare -F __ltrim_colon_completions >/dev/null; then
        __ltrim_colon_completions "$cur"
    fi
}

complete -F _engr_complete engr_app engr_gatewayd engr_gatewayctl engr_replay engr_session
