# Turns the page docs/strings-dates-clocks.md into C++ for docs-test.cpp, line by line. A row
#
#     | `word_length` | `"layer name"` | `5` | note |
#
# becomes EXAMPLE(word_length, ("layer name"), (5)). Any other line of a table is an error, so that
# no row goes untested.
1i\
#line 1 "docs/strings-dates-clocks.md"
/^[ >]*|/!s/.*//
/^| routine | input | result | note |$/s/.*//
/^| routine | unit | epoch |$/s/.*//
/^|[-|]*|$/s/.*//
s/^| `\([a-z_]*\)` | `\([^`]*\)` | `SIGABRT` | [^|]*|$/EXAMPLE_OF_ABORT(\1, (\2))/
s/^| `\([a-z_]*\)` | `\([^`]*\)` | `\([^`]*\)` | [^|]*|$/EXAMPLE(\1, (\2), (\3))/
s/^| `\([a-z_]*\)` | [^|]* | \([-0-9: ]* UTC\) |$/EXAMPLE_OF_EPOCH(\1, "\2")/
s/^[ >]*|.*/#error "This is not an example: write | `routine` | `input` | `result` | note |"/
