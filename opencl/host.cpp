#include "opencl/host.hpp"

#include <algorithm>
#include <chrono>
#include <limits>
#include <stdexcept>

namespace tuvo::opencl {
namespace {

void check(cl_int status, const char* function) {
    if (status != CL_SUCCESS)
        throw std::runtime_error(std::string(function) + " failed with " + std::to_string(status));
}

std::string device_text(cl_device_id device, cl_device_info what) {
    std::size_t size = 0;
    check(clGetDeviceInfo(device, what, 0, nullptr, &size), "clGetDeviceInfo");
    std::string text(size, '\0');
    check(clGetDeviceInfo(device, what, size, text.data(), nullptr), "clGetDeviceInfo");
    text.resize(text.find('\0'));
    return text;
}

}  // namespace

Host open_host() {
    Host host{};
    check(clGetPlatformIDs(1, &host.platform, nullptr), "clGetPlatformIDs");
    check(clGetDeviceIDs(host.platform, CL_DEVICE_TYPE_ALL, 1, &host.device, nullptr), "clGetDeviceIDs");
    cl_int status = CL_SUCCESS;
    host.context = clCreateContext(nullptr, 1, &host.device, nullptr, nullptr, &status);
    check(status, "clCreateContext");
    host.queue = clCreateCommandQueueWithProperties(host.context, host.device, nullptr, &status);
    check(status, "clCreateCommandQueueWithProperties");
    return host;
}

std::string describe(const Host& host) {
    return device_text(host.device, CL_DEVICE_NAME) + " (" + device_text(host.device, CL_DEVICE_VERSION) +
           "), driver " + device_text(host.device, CL_DRIVER_VERSION);
}

std::string processor(const Host& host) {
    // "pthread-x86_64-pc-linux-gnu-sandybridge" stands at the end of the version's text.
    const std::string text = device_text(host.device, CL_DEVICE_VERSION);
    return text.substr(text.find("linux-gnu-") == std::string::npos ? 0 : text.find("linux-gnu-") + 10);
}

cl_program build(const Host& host, const std::string& source) {
    const char* text = source.c_str();
    cl_int status = CL_SUCCESS;
    cl_program program = clCreateProgramWithSource(host.context, 1, &text, nullptr, &status);
    check(status, "clCreateProgramWithSource");
    if (clBuildProgram(program, 1, &host.device, "-cl-std=CL1.2", nullptr, nullptr) == CL_SUCCESS) return program;
    std::size_t size = 0;
    clGetProgramBuildInfo(program, host.device, CL_PROGRAM_BUILD_LOG, 0, nullptr, &size);
    std::string log(size, '\0');
    clGetProgramBuildInfo(program, host.device, CL_PROGRAM_BUILD_LOG, size, log.data(), nullptr);
    throw std::runtime_error("the program doesn't compile:\n" + log);
}

double run(const Host& host, cl_program program, const std::string& name, std::vector<Bytes>& buffers, int turns) {
    cl_int status = CL_SUCCESS;
    cl_kernel kernel = clCreateKernel(program, name.c_str(), &status);
    check(status, "clCreateKernel");
    std::vector<cl_mem> memory;
    for (Bytes& bytes : buffers) {
        memory.push_back(clCreateBuffer(host.context, CL_MEM_READ_WRITE | CL_MEM_COPY_HOST_PTR, bytes.size(),
                                        bytes.data(), &status));
        check(status, "clCreateBuffer");
        check(clSetKernelArg(kernel, static_cast<cl_uint>(memory.size() - 1), sizeof(cl_mem), &memory.back()),
              "clSetKernelArg");
    }
    double least = std::numeric_limits<double>::infinity();
    const std::size_t one = 1;
    for (int turn = 0; turn < turns; ++turn) {
        const auto start = std::chrono::steady_clock::now();
        check(clEnqueueNDRangeKernel(host.queue, kernel, 1, nullptr, &one, &one, 0, nullptr, nullptr),
              "clEnqueueNDRangeKernel");
        check(clFinish(host.queue), "clFinish");
        least = std::min(least, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    for (std::size_t i = 0; i < buffers.size(); ++i) {
        check(clEnqueueReadBuffer(host.queue, memory[i], CL_TRUE, 0, buffers[i].size(), buffers[i].data(), 0, nullptr,
                                  nullptr),
              "clEnqueueReadBuffer");
        clReleaseMemObject(memory[i]);
    }
    clReleaseKernel(kernel);
    return least;
}

}  // namespace tuvo::opencl
