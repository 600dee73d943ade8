# add_room(NAME [SOURCES file...] [HEADERS file...] [USES room-or-library...])
#
# One static library per room of src/. Its public headers are linked into an include directory of
# its own, so a room sees the headers of the rooms that it uses, of those below them and of no other:
# an include arrow that turns round fails to compile.
function(add_room name)
  cmake_parse_arguments(ROOM "" "" "SOURCES;HEADERS;USES" ${ARGN})
  set(include_root ${CMAKE_BINARY_DIR}/rooms/${name})
  foreach(header IN LISTS ROOM_HEADERS)
    get_filename_component(folder ${include_root}/${header} DIRECTORY)
    file(MAKE_DIRECTORY ${folder})
    file(CREATE_LINK ${CMAKE_SOURCE_DIR}/src/${header} ${include_root}/${header} SYMBOLIC)
  endforeach()
  if(ROOM_SOURCES)
    add_library(tally_${name} STATIC ${ROOM_SOURCES})
    set(scope PUBLIC)
    target_link_libraries(tally_${name} PRIVATE tally_options)
  else()
    add_library(tally_${name} INTERFACE)
    set(scope INTERFACE)
  endif()
  target_include_directories(tally_${name} ${scope} ${include_root})
  target_link_libraries(tally_${name} ${scope} ${ROOM_USES})
endfunction()
