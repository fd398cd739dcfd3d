# The binary interface of a library, described and compared. Sourced, not run.

# describe_interface LIBRARY HEADERS OUTPUT: what programs that include those headers depend on: the
# functions with their versions, their arguments, and the types that the headers tell of. The library
# must have debug information. Where it was built is left out, so that every machine writes the same; abidw
# has no option for the paths of the files that were compiled.
describe_interface() {
  abidw --exported-interfaces-only --headers-dir "$2" --drop-private-types --no-show-locs \
    --no-comp-dir-path --no-corpus-path --no-elf-needed --type-id-style hash --out-file "$3" "$1" &&
    sed -i -E "/<abi-instr /s/ path='[^']*'//" "$3"
}

# compare_interfaces STORED PRESENT: says what differs, in harmless ways too; fails if anything does.
compare_interfaces() {
  abidiff --harmless --no-show-locs "$1" "$2"
}
