// The XML namespace table of the vim25 stubs. gSOAP's soap_init2 installs it
// in every soap context; the prefixes are those the generated serializers
// write, the patterns in the third column are what the reader also accepts:
// SOAP 1.2 envelopes and XML Schema namespaces of any year.
#include <stdsoap2.h>

SOAP_NMAC struct Namespace namespaces[] = {
    {"SOAP-ENV", "http://schemas.xmlsoap.org/soap/envelope/", "http://www.w3.org/*/soap-envelope", nullptr},
    {"SOAP-ENC", "http://schemas.xmlsoap.org/soap/encoding/", "http://www.w3.org/*/soap-encoding", nullptr},
    {"xsi", "http://www.w3.org/2001/XMLSchema-instance", "http://www.w3.org/*/XMLSchema-instance", nullptr},
    {"xsd", "http://www.w3.org/2001/XMLSchema", "http://www.w3.org/*/XMLSchema", nullptr},
    {"ns2", "urn:vim25", nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr},
};
