# Writes a header defining KESTROM_INTROSPECTION_<PROTOCOL> as the <interface> element of an
# interface file, for the Q_CLASSINFO of an adaptor written by hand: its introspection then says
# exactly what the file says.
file(READ "${XML}" text)
string(FIND "${text}" "<interface" start)
string(FIND "${text}" "</interface>" end)
if(start EQUAL -1 OR end EQUAL -1)
    message(FATAL_ERROR "${XML}: no interface element")
endif()
math(EXPR length "${end} - ${start} + 12")
string(SUBSTRING "${text}" ${start} ${length} element)
string(REPLACE "\\" "\\\\" element "${element}")
string(REPLACE "\"" "\\\"" element "${element}")
string(REPLACE "\n" "\\n\" \\\n    \"" element "${element}")
file(WRITE "${HEADER}" "#pragma once\n// Generated from ${XML}.\n#define KESTROM_INTROSPECTION_${PROTOCOL} \\\n    \"${element}\\n\"\n")
