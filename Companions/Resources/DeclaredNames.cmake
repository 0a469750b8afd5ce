# Writes every message name ("MSG_..." or "ERR_..." in quotes) that the
# product's sources declare, one a line, sorted: the tests hold the language
# modules against it, so that a name added to the code without a text in every
# language fails the build's tests. Arguments: -DROOT=<source root> -DOUT=<file>.
file(GLOB_RECURSE sources ${ROOT}/Launcher/*.cpp ${ROOT}/Launcher/*.h ${ROOT}/MdShared/*.cpp
     ${ROOT}/MdShared/*.h ${ROOT}/Tessels/*.cpp ${ROOT}/Tessels/*.h)
set(names)
foreach(source ${sources})
  file(STRINGS ${source} lines REGEX "\"(MSG|ERR)_[A-Z0-9_]+\"")
  foreach(line ${lines})
    string(REGEX MATCHALL "\"(MSG|ERR)_[A-Z0-9_]+\"" found "${line}")
    list(APPEND names ${found})
  endforeach()
endforeach()
list(TRANSFORM names REPLACE "\"" "")
list(REMOVE_DUPLICATES names)
list(SORT names)
list(JOIN names "\n" text)
file(WRITE ${OUT}.new "${text}\n")
file(COPY_FILE ${OUT}.new ${OUT} ONLY_IF_DIFFERENT)
