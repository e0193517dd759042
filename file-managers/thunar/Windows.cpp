#include "file-managers/thunar/Windows.h"

#include "file-managers/gtk/Handles.h"
#include "file-managers/thunar/FolderEmblems.h"

#include <utility>

extern "C" { // some of its headers do not say that they are C
#include <thunarx/thunarx.h>
}

namespace file_managers {

namespace {

using Emblems = std::map<std::string, std::vector<std::string>>;

/// The information is that which Thunar draws the file from.
void showEmblems(ThunarxFileInfo* file, std::vector<std::string> emblems) {
    const Object<GFileInfo> info(thunarx_file_info_get_file_info(file));
    if (!info)
        return;
    setEmblems(info.get(), std::move(emblems));
    thunarx_file_info_changed(file);
}

/// The files in a view are in a column of its model.
int columnOfFiles(GtkTreeModel* model) {
    for (int column = 0; column < gtk_tree_model_get_n_columns(model); ++column) {
        if (g_type_is_a(gtk_tree_model_get_column_type(model, column), THUNARX_TYPE_FILE_INFO) !=
            FALSE)
            return column;
    }
    return -1;
}

void collect(GtkTreeModel* model, std::vector<Object<GObject>>& files) {
    struct Search {
        int column;
        std::vector<Object<GObject>>& files;
    } search{.column = columnOfFiles(model), .files = files};
    if (search.column < 0)
        return;
    const auto add = [](GtkTreeModel* rows, GtkTreePath*, GtkTreeIter* row, void* data) {
        auto& [column, found] = *static_cast<Search*>(data);
        Object<GObject> file;
        gtk_tree_model_get(rows, row, column, static_cast<GObject**>(Out(file)), -1);
        if (file)
            found.push_back(std::move(file));
        return FALSE;
    };
    gtk_tree_model_foreach(model, add, &search);
}

void collect(GtkWidget* widget, void* files) {
    if (g_object_class_find_property(G_OBJECT_GET_CLASS(widget), "model") != nullptr) {
        Object<GObject> model;
        g_object_get(widget, "model", static_cast<GObject**>(Out(model)), nullptr);
        if (GTK_IS_TREE_MODEL(model.get()))
            collect(GTK_TREE_MODEL(model.get()),
                    *static_cast<std::vector<Object<GObject>>*>(files));
    }
    if (GTK_IS_CONTAINER(widget))
        gtk_container_forall(GTK_CONTAINER(widget), &collect, files);
}

} // namespace

void showEmblems(const Emblems& emblems) {
    std::vector<Object<GObject>> files;
    GList* const windows = gtk_window_list_toplevels();
    for (const GList* window = windows; window != nullptr; window = window->next)
        collect(GTK_WIDGET(window->data), &files);
    g_list_free(windows);
    for (const Object<GObject>& file : files) {
        auto* const shown = THUNARX_FILE_INFO(file.get());
        const Text url(thunarx_file_info_get_uri(shown));
        const auto found = emblems.find(url ? url.get() : "");
        if (found != emblems.end())
            showEmblems(shown, found->second);
    }
}

} // namespace file_managers
