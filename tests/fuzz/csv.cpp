// Tables, with and without labels. One that is accepted is rectangular, and the file that is written of it is read
// back.
#include "client/demos/csv.hpp"
#include "tests/fuzz/fuzz.hpp"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace tuvo;
    const auto path = fuzz::as_file("table.csv", data, size);
    for (const client::Labels labels : {client::Labels::none, client::Labels::first})
        fuzz::accept_or_reject([&] {
            const client::Table table = client::read_csv(path.string(), labels);
            for (const auto& column : table.columns)
                if (column.size() != table.rows()) std::abort();
            if (labels == client::Labels::first && table.labels.size() != table.rows()) std::abort();
            const std::string copy = (fuzz::folder() / "copy.csv").string();
            client::write_csv(table, copy);
            if (client::read_csv(copy, labels).rows() != table.rows()) std::abort();
        });
    return 0;
}
