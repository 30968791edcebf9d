# The shared library exports the names in abi/symbols, with any arguments, and nothing else: no private
# operations, and no instances of the standard library's templates, which an application could take
# for its own.
set(list ${CMAKE_CURRENT_SOURCE_DIR}/abi/symbols)
set(script ${CMAKE_CURRENT_BINARY_DIR}/exported_symbols.map)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${list})
file(STRINGS ${list} lines)
if(NOT NIVUR_EXPORT_IFADDRS)
  list(REMOVE_ITEM lines getifaddrs freeifaddrs)
endif()
set(c_names "")
set(patterns "")
foreach(line IN LISTS lines)
  if(line MATCHES " for ")
    string(APPEND patterns "    \"${line}\";\n")
  elseif(line MATCHES "::")
    # A pattern has no other punctuation. Arguments or an ABI tag may follow the name.
    string(REGEX REPLACE "\\(.*" "" name "${line}")
    string(REGEX REPLACE "[^A-Za-z0-9_:]" "?" name "${name}")
    string(APPEND patterns "    ${name};\n    ${name}[^A-Za-z0-9_]*;\n")
  else()
    string(APPEND c_names "    ${line};\n")
  endif()
endforeach()
file(GENERATE OUTPUT ${script}
  CONTENT "{\n  global:\n${c_names}  extern \"C++\" {\n${patterns}  };\n  local: *;\n};\n")
target_link_options(nivur PRIVATE LINKER:--version-script=${script})
set_property(TARGET nivur APPEND PROPERTY LINK_DEPENDS ${script})
