# Tests of the credential store.
vantrel_add_test(NetCredentialsTest
  SOURCES NetworkCredentialTest.cpp CredentialCacheTest.cpp
  LIBRARIES VantrelBase::Net)
