# Writes the page IN as the C++ source OUT, defining HarbecAgent::kWebPage.
file(READ ${IN} page)
file(WRITE ${OUT} "namespace HarbecAgent {\nextern const char kWebPage[] = R\"harbec_page(${page})harbec_page\";\n}\n")
