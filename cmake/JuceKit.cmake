# SPDX-License-Identifier: GPL-3.0-or-later
# JUCE's core modules, compiled once from their sources for all targets.

find_path(JUCE_MODULES_DIR juce_core/juce_core.h PATHS /usr/share/juce/modules REQUIRED)
find_package(ZLIB REQUIRED)
find_package(Threads REQUIRED)

add_library(juce_kit STATIC
  ${JUCE_MODULES_DIR}/juce_core/juce_core.cpp
  ${JUCE_MODULES_DIR}/juce_events/juce_events.cpp
  ${JUCE_MODULES_DIR}/juce_data_structures/juce_data_structures.cpp)
target_include_directories(juce_kit SYSTEM PUBLIC ${JUCE_MODULES_DIR})
# _NDEBUG in every configuration: JUCE's debug build prints its version to standard error when it is loaded, which a module
# inside another program must not do. assert() in our code depends on NDEBUG as usual.
target_compile_definitions(juce_kit PUBLIC
  JUCE_GLOBAL_MODULE_SETTINGS_INCLUDED=1
  JUCE_USE_CURL=0
  JUCE_MODULE_AVAILABLE_juce_core=1
  JUCE_MODULE_AVAILABLE_juce_events=1
  JUCE_MODULE_AVAILABLE_juce_data_structures=1
  _NDEBUG=1
  $<$<PLATFORM_ID:Linux>:LINUX=1>)
target_compile_options(juce_kit PRIVATE -w)
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  target_compile_options(juce_kit PRIVATE -include ${CMAKE_CURRENT_LIST_DIR}/JuceCloseOnExec.h)
endif()
target_link_libraries(juce_kit PUBLIC ZLIB::ZLIB Threads::Threads ${CMAKE_DL_LIBS})
if(WIN32)
  target_link_libraries(juce_kit PUBLIC ws2_32 iphlpapi wininet version shlwapi winmm ole32 oleaut32 uuid)
  set(select ${CMAKE_CURRENT_LIST_DIR}/JuceSelectWindows.h)
  set_source_files_properties(${JUCE_MODULES_DIR}/juce_core/juce_core.cpp PROPERTIES
    COMPILE_OPTIONS "$<IF:$<BOOL:${MSVC}>,/FI${select},-include;${select}>" OBJECT_DEPENDS ${select})
endif()
