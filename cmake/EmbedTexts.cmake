# Writes a C++ file with the contents of text files:
#   cmake -D OUTPUT=FILE.cpp -D HEADER=PATH.h -D NAMESPACE=NAME -D TEXTS=CONSTANT=FILE,CONSTANT=FILE... -P EmbedTexts.cmake
# A literal may have 16 KB with some compilers, so a text becomes several, one behind the other.
set(literal_size 8000)

set(code "// Made by the build; the texts are files of their own.\n#include \"${HEADER}\"\n\nnamespace ${NAMESPACE} {\n")
string(REPLACE "," ";" pairs "${TEXTS}")
foreach(pair IN LISTS pairs)
    string(REGEX MATCH "^([^=]+)=(.+)$" matched "${pair}")
    set(constant "${CMAKE_MATCH_1}")
    file(READ "${CMAKE_MATCH_2}" text)
    string(LENGTH "${text}" size)
    string(APPEND code "\nconst char ${constant}[] =")
    set(start 0)
    while(start LESS size)
        string(SUBSTRING "${text}" ${start} ${literal_size} part)
        string(APPEND code "\n    R\"embedded(${part})embedded\"")
        math(EXPR start "${start} + ${literal_size}")
    endwhile()
    string(APPEND code ";\n")
endforeach()
string(APPEND code "\n} // namespace ${NAMESPACE}\n")
file(WRITE "${OUTPUT}" "${code}")
