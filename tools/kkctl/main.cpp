#include <iostream>

#include "app.h"
#include "platform.h"

int main(int argc, char** argv)
{
    const kkctl::Utf8Console console;
    const kkctl::Environment environment = {.openKit = kkctl::OpenKit,
                                            .readLine = kkctl::ReadInputLine,
                                            .out = std::cout,
                                            .err = std::cerr,
                                            .inputIsTerminal = kkctl::InputIsTerminal(),
                                            .errorIsTerminal = kkctl::ErrorIsTerminal()};
    return kkctl::RunCommandLine(kkctl::ProgramArguments(argc, argv), environment);
}
