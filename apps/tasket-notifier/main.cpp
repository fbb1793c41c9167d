// tasket-notifier: the reminder daemon of the session (see notifier_program.h).
#include "common/program_start.h"
#include "tasket-notifier/notifier_program.h"

#include <iostream>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    tasket::apps::startProgram();
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    return tasket::apps::runNotifierProgram(arguments, std::cout, std::cerr);
}
