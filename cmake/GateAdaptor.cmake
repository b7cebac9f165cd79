# Makes a generated adaptor derive from GatedAdaptor instead of QDBusAbstractAdaptor. Fails when
# the generator's output changed shape, so that no adaptor is ever left without the gate.
foreach(file IN ITEMS "${HEADER}" "${SOURCE}")
    file(READ "${file}" text)
    string(REPLACE "public QDBusAbstractAdaptor" "public GatedAdaptor" text "${text}")
    string(REPLACE ": QDBusAbstractAdaptor(parent)" ": GatedAdaptor(parent)" text "${text}")
    if(text MATCHES "QDBusAbstractAdaptor\\(parent\\)|public QDBusAbstractAdaptor" OR
       NOT text MATCHES "GatedAdaptor")
        message(FATAL_ERROR "${file}: the adaptor could not be based on GatedAdaptor")
    endif()
    file(WRITE "${file}" "${text}")
endforeach()
