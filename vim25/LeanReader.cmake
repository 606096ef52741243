# Run on the generated soapC.cpp right after soapcpp2 (cmake -DFILE=... -P).
# Three changes to the reader, all about the first update set of a large
# inventory, where every allocation counts several hundred thousand times:
#
#  - soap_in_std__string reads the text into the context's memory and then
#    copies it into the std::string; the first copy would stay until
#    soap_end. It is the newest block of the context, first on its list, so
#    giving it back at once costs nothing and takes a sixth off the peak.
#  - In every class below xsd__anyType the inherited __item catches the first
#    child element that the class does not declare, as raw XML copied into
#    the context. Nothing reads __item of a derived class, and each vim25
#    record has undeclared children, so such a child is skipped like the
#    others. A value of an unknown class (read as xsd__anyType itself) still
#    keeps its content in __item.
#  - Each object the reader creates goes on a deletion list; soap_link takes
#    the list's entry from the heap. Entries of single objects come from the
#    context's arena with the objects themselves (SoapArena.h).
#
# The build fails if a gSOAP release generates the code differently.
file(READ "${FILE}" text)

set(before "${text}")
string(REPLACE "\t\t\ts->assign(t);\n" "\t\t\ts->assign(t);\n\t\t\tsoap_dealloc(soap, t);\n" text "${text}")
if(text STREQUAL before)
  message(FATAL_ERROR "LeanReader: no string reader in ${FILE}")
endif()

set(before "${text}")
string(REPLACE "soap_inliteral(soap, \"-item\", (char**)&a->xsd__anyType::__item)" "0 /* skipped */" text "${text}")
if(text STREQUAL before)
  message(FATAL_ERROR "LeanReader: no inherited catch-all in ${FILE}")
endif()

set(before "${text}")
string(REPLACE "soap_link(soap, SOAP_TYPE_" "Vim25::arenaLink(soap, SOAP_TYPE_" text "${text}")
if(text STREQUAL before)
  message(FATAL_ERROR "LeanReader: no deletion list entries in ${FILE}")
endif()

file(WRITE "${FILE}" "${text}")
