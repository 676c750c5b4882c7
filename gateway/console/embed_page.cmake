# Writes the C++ source with the files of the console's page, each under its own name and page.html as "/":
# cmake -DOUT=FILE -DPAGE_DIR=DIR -P embed_page.cmake
set(types_html "text/html; charset=utf-8")
set(types_css "text/css; charset=utf-8")
set(types_js "text/javascript; charset=utf-8")
set(types_svg "image/svg+xml")

file(GLOB files RELATIVE "${PAGE_DIR}" "${PAGE_DIR}/*")
list(SORT files)
set(arrays "")
set(table "")
foreach(file IN LISTS files)
    string(REGEX REPLACE "^.*\\." "" extension "${file}")
    if(NOT DEFINED types_${extension})
        message(FATAL_ERROR "${PAGE_DIR}/${file}: the console knows no media type for it")
    endif()
    string(MAKE_C_IDENTIFIER "${file}" name)
    set(path "/${file}")
    if(file STREQUAL "page.html")
        set(path "/")
    endif()
    file(READ "${PAGE_DIR}/${file}" bytes HEX)
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${bytes}")
    string(REGEX REPLACE "('.....',)('.....',)?('.....',)?('.....',)?('.....',)?('.....',)?('.....',)?('.....',)?"
           "\\0\n" bytes "${bytes}")
    string(APPEND arrays "constexpr char ${name}[] = {\n${bytes}};\n")
    string(APPEND table "    {\"${path}\", \"${types_${extension}}\", {${name}, sizeof ${name}}},\n")
endforeach()
file(WRITE "${OUT}" "// Made by embed_page.cmake.
#include \"console/page_files.h\"

namespace console {
namespace {

${arrays}
constexpr web_file files[] = {
${table}};

} // namespace

std::span<const web_file> page_files() {
    return files;
}

} // namespace console
")
