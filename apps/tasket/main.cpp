// tasket: the command-line companion over the task store.
#include "common/exit_code.h"
#include "common/program_start.h"
#include "tasket/tasket_cli.h"

#include <exception>
#include <iostream>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    tasket::apps::startProgram();
    try {
        const std::vector<std::string> arguments(argv + 1, argv + argc);
        return tasket::apps::finishProgram(
            tasket::apps::runTasket(arguments, std::cout, std::cerr));
    } catch (const std::exception& exception) {
        std::cerr << "tasket: internal error: " << exception.what() << '\n';
        return tasket::apps::kExitSoftware;
    }
}
