-- What a SQLite database has of that which the programs rely on, a row a fact. Two databases are compared by
-- their facts, and the words of a fact are what an administrator is told to be missing.
WITH
Tables AS (
    SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite!_%' ESCAPE '!'
),
-- Sorted, because the order of a key's columns makes it no less unique. How the key of FtpNodes compares is no
-- fact: a console that finds no such table makes one, with the one statement that it has for every engine.
IndexColumns AS (
    SELECT t.name AS tableName, i.name, i."unique" AS isUnique, c.seqno, c.name AS columnName,
           CASE WHEN c.coll = 'NOCASE' AND t.name <> 'FtpNodes' COLLATE NOCASE THEN ' without case' ELSE '' END
               AS comparison
    FROM Tables t, pragma_index_list(t.name) i, pragma_index_xinfo(i.name) c
    WHERE i.partial = 0 AND c.key = 1
    ORDER BY t.name, i.name, c.name
)
SELECT name AS TableName, 'the table' AS Fact FROM Tables
UNION ALL
SELECT t.name, 'the column ' || c.name ||
       CASE WHEN c.type LIKE '%CHAR%' OR c.type LIKE '%TEXT%' THEN ' for text' ELSE ' for numbers' END
FROM Tables t, pragma_table_xinfo(t.name) c
UNION ALL
SELECT tableName, 'the unique key (' || group_concat(columnName || comparison, ', ') || ')'
FROM IndexColumns WHERE isUnique = 1 GROUP BY tableName, name
UNION ALL
-- A primary key of one whole number is the row's own number: it needs no index and has none.
SELECT t.name, 'the unique key (' || c.name || ')'
FROM Tables t, pragma_table_xinfo(t.name) c
WHERE c.pk = 1 AND upper(c.type) = 'INTEGER'
  AND NOT EXISTS (SELECT 1 FROM pragma_index_list(t.name) i WHERE i.origin = 'pk')
UNION ALL
SELECT DISTINCT tableName, 'an index for look-ups by ' || columnName
FROM IndexColumns WHERE isUnique = 0 AND seqno = 0
