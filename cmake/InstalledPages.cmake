# Run at installation, on the pages below PAGES: links to what is not installed become their text.
file(GLOB_RECURSE pages "${PAGES}/*.md")
foreach(page IN LISTS pages)
    file(READ "${page}" text)
    string(REGEX REPLACE
        "\\[([^]\n]*)\\]\\((\\.\\./)*(src|host|otlp|tools|test|benchmarks|scripts|cmake|CONTRIBUTING\\.md)[^)\n]*\\)"
        "\\1" changed "${text}")
    if(NOT changed STREQUAL text)
        file(WRITE "${page}" "${changed}")
    endif()
endforeach()
