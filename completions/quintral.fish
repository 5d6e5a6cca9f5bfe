# Completion of quintral for fish.

function __quintral_option -a name argument help
    switch $argument
        case ''
            complete -c quintral -o $name -l $name -d $help
        case file
            complete -c quintral -o $name -l $name -r -F -d "$help [$argument]"
        case '*'
            complete -c quintral -o $name -l $name -x -d "$help [$argument]"
    end
end

complete -c quintral -f

# Each option with the name of its argument and its help. A test holds this list equal to the
# options of the program.
__quintral_option product name 'Product to ask about.'
__quintral_option productline name 'Product line it belongs to.'
__quintral_option product-version n 'Its version, a number such as 5.2.'
__quintral_option version-name text 'Name of that version.'
__quintral_option machine-id text 'Identifier of this machine (default: empty).'
__quintral_option os name 'Operating system (default: detected).'
__quintral_option os-version text 'Its version (default: detected).'
__quintral_option processor-arch name 'Processor (default: detected).'
__quintral_option service host[:port] 'Ask this update service.'
__quintral_option proxy host:port 'Use a proxy server to connect to the internet.'
__quintral_option proxy-user user 'Username for proxy authentication.'
__quintral_option proxy-pass password 'Password for proxy authentication.'
__quintral_option password-file file 'Read the password from a file.'
__quintral_option max-time seconds 'Overall time limit, 1 to 86400 (default: 60).'
__quintral_option json '' 'Print one JSON object instead of text.'
__quintral_option quiet '' 'Suppress the progress indicator and notes.'
__quintral_option exit-code '' 'Exit with status 10 if newer, 11 if unknown.'
__quintral_option open '' 'Open the URL of a newer version in the browser.'
__quintral_option show-request '' 'Print the request instead of sending it.'
__quintral_option explain-proxy '' 'Say which proxy is used and why; send nothing.'
__quintral_option record file 'Keep the request and the reply in a file.'
__quintral_option parse file 'Read a recorded or saved reply; send nothing.'
__quintral_option help '' 'Print this text.'
__quintral_option version '' 'Print the version of this program.'
__quintral_option V '' 'The same as -version.'

functions -e __quintral_option
