#include <iostream>

#include "app.h"
#include "platform.h"

int main(int argc, char** argv)
{
    const kkctl::Utf8Console console;
    const kkctl::Environment environment = {kkctl::OpenKit, std::cout, std::cerr, kkctl::ErrorIsTerminal()};
    return kkctl::RunCommandLine(kkctl::ProgramArguments(argc, argv), environment);
}
