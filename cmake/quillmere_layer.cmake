# quillmere_layer(): one layer of the core as a library of its own.
#
#   quillmere_layer(<target>
#     [UNITS <folder/unit>...]      units named explicitly: "dates/iso_date" adds
#                                   core/dates/iso_date.h and/or core/dates/iso_date.cpp
#     [GLOB <folder/pattern>...]    units found by a pattern, e.g. "repair/*"; new files are
#                                   picked up at the next build
#     [EXCLUDE <regex>...]          drops globbed files whose path (below core/) matches
#     [BELOW <layer>...]            the lower layers this one builds on
#     [PUBLIC_LIBS <lib>...]        libraries its headers need too
#     [PRIVATE_LIBS <lib>...]       libraries only its .cpp files need
#     [DEFINITIONS <definition>...] private compile definitions)
#
# A layer compiles against an include tree of its own, built in the build folder, that holds
# only its headers and those of the layers below it (symbolic links to the sources). An
# #include that reaches up therefore fails with "No such file or directory". Every header is
# also compiled on its own against that tree, so a header that no .cpp of its layer includes
# is held to the same rule (and must include what it uses).
#
# A layer without .cpp files (only headers, or none yet) becomes an INTERFACE library.
# Everything above the core links the aggregate target quillmere_core instead.

option(QUILLMERE_HEADER_CHECK "Compile every core header on its own against its layer" ON)

function(quillmere_layer target)
  cmake_parse_arguments(PARSE_ARGV 1 L "" ""
                        "UNITS;GLOB;EXCLUDE;BELOW;PUBLIC_LIBS;PRIVATE_LIBS;DEFINITIONS")
  set(core ${PROJECT_SOURCE_DIR}/core)

  set(files)
  foreach(unit IN LISTS L_UNITS)
    set(found FALSE)
    foreach(extension h cpp)
      if(EXISTS ${core}/${unit}.${extension})
        list(APPEND files ${unit}.${extension})
        set(found TRUE)
      endif()
    endforeach()
    if(NOT found)
      message(FATAL_ERROR "${target}: no core/${unit}.h or core/${unit}.cpp")
    endif()
  endforeach()
  foreach(pattern IN LISTS L_GLOB)
    file(GLOB globbed CONFIGURE_DEPENDS RELATIVE ${core} ${core}/${pattern}.h ${core}/${pattern}.cpp)
    foreach(file IN LISTS globbed)
      set(excluded FALSE)
      foreach(regex IN LISTS L_EXCLUDE)
        if(file MATCHES "${regex}")
          set(excluded TRUE)
        endif()
      endforeach()
      if(NOT excluded)
        list(APPEND files ${file})
      endif()
    endforeach()
  endforeach()

  # A file claimed by two layers would compile twice and blur the graph.
  get_property(claimed GLOBAL PROPERTY QUILLMERE_CLAIMED_FILES)
  foreach(file IN LISTS files)
    if(file IN_LIST claimed)
      message(FATAL_ERROR "${target}: core/${file} already belongs to another layer")
    endif()
  endforeach()
  set_property(GLOBAL APPEND PROPERTY QUILLMERE_CLAIMED_FILES ${files})

  set(headers ${files})
  list(FILTER headers INCLUDE REGEX "\\.h$")
  set(sources ${files})
  list(FILTER sources INCLUDE REGEX "\\.cpp$")
  list(TRANSFORM sources PREPEND ${core}/)

  # The include tree: this layer's headers and everything the layers below can see.
  set(visible ${headers})
  foreach(lower IN LISTS L_BELOW)
    get_property(lowerHeaders GLOBAL PROPERTY QUILLMERE_VISIBLE_${lower})
    list(APPEND visible ${lowerHeaders})
  endforeach()
  list(REMOVE_DUPLICATES visible)
  set_property(GLOBAL PROPERTY QUILLMERE_VISIBLE_${target} ${visible})
  set(tree ${CMAKE_BINARY_DIR}/layers/${target})
  file(REMOVE_RECURSE ${tree})
  foreach(header IN LISTS visible)
    get_filename_component(folder ${tree}/core/${header} DIRECTORY)
    file(MAKE_DIRECTORY ${folder})
    file(CREATE_LINK ${core}/${header} ${tree}/core/${header} SYMBOLIC)
  endforeach()

  if(sources)
    add_library(${target} STATIC ${sources})
    target_include_directories(${target} PRIVATE ${tree})
    target_link_libraries(${target} PUBLIC ${L_BELOW} ${L_PUBLIC_LIBS} PRIVATE ${L_PRIVATE_LIBS})
    target_compile_definitions(${target} PRIVATE ${L_DEFINITIONS})
  else()
    add_library(${target} INTERFACE)
    target_link_libraries(${target} INTERFACE ${L_BELOW} ${L_PUBLIC_LIBS})
  endif()

  if(QUILLMERE_HEADER_CHECK AND headers)
    set(checks)
    foreach(header IN LISTS headers)
      set(check ${CMAKE_BINARY_DIR}/layers/${target}-header-check/${header}.cpp)
      file(CONFIGURE OUTPUT ${check} CONTENT "#include \"core/${header}\"\n")
      list(APPEND checks ${check})
    endforeach()
    add_library(${target}_header_check OBJECT ${checks})
    target_include_directories(${target}_header_check PRIVATE ${tree})
    target_link_libraries(${target}_header_check PRIVATE ${L_BELOW} ${L_PUBLIC_LIBS}
                          ${L_PRIVATE_LIBS})
    # Each header must compile alone, so these never share a translation unit.
    set_target_properties(${target}_header_check PROPERTIES UNITY_BUILD OFF)
    add_dependencies(${target} ${target}_header_check)
  endif()
endfunction()
