#include "trace_reader/page.h"

#include <string_view>

#include "trace_reader/page_template.h"
#include "trace_reader/pattern.h"

namespace {

// In the template's data element: cells between tabs, rows between line feeds, tables between empty
// lines. None of the three stands in a cell.
class Data {
 public:
  void Row(const std::string& first, const std::vector<std::string>& others) {
    Cell(first);
    for (const std::string& other : others) {
      text_ += '\t';
      Cell(other);
    }
    text_ += '\n';
  }

  void Add(const Table& table) {
    Row(table.title, table.columns);
    for (const auto& [label, numbers] : table.rows) {
      std::vector<std::string> cells;
      for (const std::uint64_t number : numbers) {
        cells.push_back(std::to_string(number));
      }
      Row(label, cells);
    }
    text_ += '\n';
  }

  const std::string& text() const { return text_; }

 private:
  void Cell(std::string_view cell) {
    for (const char c : cell) {
      c == '<' ? text_.append("&lt;") : c == '&' ? text_.append("&amp;") : text_.append(1, c);
    }
  }

  std::string text_;
};

}  // namespace

std::string Page(const Summary& summary, const std::vector<Table>& tables) {
  Data data;
  data.Add(summary.Course());
  for (const Table& table : tables) {
    data.Add(table);
  }
  data.Row("Stories", {});
  for (const std::deque<Story>& kept : summary.kept()) {
    for (const Story& story : kept) {
      data.Row(std::to_string(story.number), {std::to_string(story.id), Printable(story.name),
                                              story.road, std::string(kOutcomes[story.outcome])});
    }
  }
  std::string page = kPageTemplate;
  constexpr std::string_view kPlace = "<!-- data -->";
  return page.replace(page.find(kPlace), kPlace.size(), data.text());
}
