// Reads a design from standard input and writes it to standard output in a process whose locale is the environment's.
#include <orvo/context.h>
#include <orvo/design.h>
#include <orvo/xmlservices.h>

#include <clocale>
#include <iostream>
#include <locale>

int main() {
    if (std::setlocale(LC_ALL, "") == nullptr) {
        return 2;
    }
    std::locale::global(std::locale(""));
    std::cin.imbue(std::locale());
    std::cout.imbue(std::locale());
    orvo::ContextMgr context;
    orvo::Design design(context.context());
    orvo::XMLServices xml;
    if (!xml.fromXML(std::cin, design, orvo::XMLServices::defaultErrorFunc)) {
        return 1;
    }
    xml.toXML(std::cout, design);
    return 0;
}
