# Tests of the library frame: library record, component, server base, and loading the plug-in.
vantrel_add_test(NetFrameTest
  SOURCES
    NetComponentTest.cpp
    NetLibraryTest.cpp
  LIBRARIES VantrelBaseNet)

vantrel_add_test(NetServerBaseTest
  SOURCES ServerBaseTest.cpp
  LIBRARIES VantrelBaseNet)

# Links only the host layer: the plug-in is reached through dlopen, as the host reaches it.
vantrel_add_test(NetDynamicLoadingTest
  SOURCES DynamicLoadingTest.cpp
  LIBRARIES Qib ${CMAKE_DL_LIBS})
target_compile_definitions(NetDynamicLoadingTest PRIVATE VANTREL_NET_LIBRARY_PATH="$<TARGET_FILE:VantrelBaseNet>")
add_dependencies(NetDynamicLoadingTest VantrelBaseNet)
