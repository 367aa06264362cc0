#pragma once
#include <exception>
#include <string>

namespace tsl {

// Base of every error family the system throws. Each family renders its own
// description when it is made; what() returns that text.
class Error : public std::exception {
public:
    explicit Error(std::string description) : _description(std::move(description)) {}
    const std::string& description() const noexcept { return _description; }
    const char* what() const noexcept override { return _description.c_str(); }

protected:
    void setDescription(std::string d) { _description = std::move(d); }

private:
    std::string _description;
};

}  // namespace tsl
