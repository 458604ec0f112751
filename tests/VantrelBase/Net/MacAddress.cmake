# Tests of the hardware address value.
vantrel_add_test(MacAddressTest
  SOURCES MacAddressTest.cpp
  LIBRARIES VantrelBase::Net)
