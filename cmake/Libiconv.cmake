# Defines the target midtable_iconv: GNU libiconv where the machine has it, else nothing to link and
# MIDTABLE_ICONV_STAND_IN set, so that our calls of the same names are built.
include(CheckLibraryExists)

add_library(midtable_iconv INTERFACE)
find_library(LIBICONV_LIBRARY iconv)
mark_as_advanced(LIBICONV_LIBRARY)
if(LIBICONV_LIBRARY)
  check_library_exists(${LIBICONV_LIBRARY} libiconv_open "" HAVE_LIBICONV_OPEN)
endif()
if(HAVE_LIBICONV_OPEN)
  set(MIDTABLE_ICONV_STAND_IN OFF)
  target_link_libraries(midtable_iconv INTERFACE ${LIBICONV_LIBRARY})
  message(STATUS "Text conversion: GNU libiconv (${LIBICONV_LIBRARY})")
else()
  set(MIDTABLE_ICONV_STAND_IN ON)
  message(STATUS "Text conversion: the C library's iconv (libiconv_open was not found)")
endif()
