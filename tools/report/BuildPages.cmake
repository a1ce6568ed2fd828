# Makes single pages out of the player's and the report's parts:
#   REPORT_SOURCE  a C++ file with the report's page, without movie and data, as the text REPORT_PAGE
#   PLAYER_PAGE    the player's page
# Modules are put one behind the other into one script, with their imports and exports taken away. What decodes comes first,
# and ends with a mark: the page hands it to a worker.
# Takes PLAYER and REPORT, the folders that the parts are in.

set(DECODER_MODULES bits tables bundles blocks planes colour sound vorn worker)
set(PLAYER_MODULES frames feed controls player)

function(read_modules result)
    set(script "")
    foreach(file ${ARGN})
        file(READ "${file}" text)
        string(REGEX REPLACE "\n(import|export) [^\n]* from '[^\n]*'[;]" "" text "\n${text}")
        string(REGEX REPLACE "\nexport " "\n" text "${text}")
        string(APPEND script "${text}")
    endforeach()
    set(${result} "${script}" PARENT_SCOPE)
endfunction()

list(TRANSFORM DECODER_MODULES REPLACE "(.+)" "${PLAYER}/\\1.js" OUTPUT_VARIABLE decoder_modules)
list(TRANSFORM PLAYER_MODULES REPLACE "(.+)" "${PLAYER}/\\1.js" OUTPUT_VARIABLE player_modules)
read_modules(decoder ${decoder_modules})
file(READ "${PLAYER}/player.css" player_style)

file(READ "${REPORT}/report.html" page)
file(READ "${REPORT}/report.css" report_style)
read_modules(script ${player_modules} "${REPORT}/charts.js" "${REPORT}/report.js")
string(REPLACE "/*@STYLE@*/" "${player_style}${report_style}" page "${page}")
string(REPLACE "/*@SCRIPT@*/" "${decoder}//@PAGE\n${script}" page "${page}")
file(WRITE "${REPORT_SOURCE}" "#include \"tools/ReportPage.h\"\n\nnamespace vorn {\n"
    "const char* const REPORT_PAGE = R\"~~~(${page})~~~\";\n}\n")

file(READ "${PLAYER}/index.html" page)
read_modules(script ${player_modules} "${PLAYER}/index.js")
string(REPLACE "<link rel=\"stylesheet\" href=\"player.css\">" "<style>\n${player_style}</style>" page "${page}")
string(REPLACE "<script type=\"module\" src=\"index.js\"></script>" "<script type=\"module\" id=\"script\">${decoder}//@PAGE\n${script}</script>" page "${page}")
file(WRITE "${PLAYER_PAGE}" "${page}")
