-- What a PostgreSQL database has of that which the programs rely on, a row a fact: the same facts as of a SQLite
-- database, in the same words. Looked at is the schema in which a statement makes its tables.
WITH
Tables AS (
    SELECT oid, relname AS name FROM pg_class
    WHERE relkind IN ('r', 'p') AND relnamespace = (SELECT oid FROM pg_namespace WHERE nspname = current_schema())
),
-- How the key of FtpNodes compares is no fact: a console that finds no such table makes one, with the one
-- statement that it has for every engine.
IndexColumns AS (
    SELECT t.name AS tableName, i.indexrelid, i.indisunique AS isUnique, k.position, a.attname AS columnName,
           CASE WHEN NOT c.collisdeterministic AND t.name <> 'ftpnodes' THEN ' without case' ELSE '' END AS comparison
    FROM Tables t
    JOIN pg_index i ON i.indrelid = t.oid AND i.indpred IS NULL
    CROSS JOIN LATERAL unnest(i.indkey::int2[], i.indcollation::oid[]) WITH ORDINALITY
        AS k(attribute, compared, position)
    JOIN pg_attribute a ON a.attrelid = t.oid AND a.attnum = k.attribute
    LEFT JOIN pg_collation c ON c.oid = k.compared
    WHERE k.position <= i.indnkeyatts
)
SELECT name::text AS TableName, 'the table' AS Fact FROM Tables
UNION ALL
SELECT t.name, 'the column ' || a.attname ||
       CASE WHEN y.typcategory = 'S' THEN ' for text' ELSE ' for numbers' END
FROM Tables t
JOIN pg_attribute a ON a.attrelid = t.oid AND a.attnum > 0 AND NOT a.attisdropped
JOIN pg_type y ON y.oid = a.atttypid
UNION ALL
-- Sorted, because the order of a key's columns makes it no less unique.
SELECT tableName, 'the unique key (' || string_agg(columnName || comparison, ', ' ORDER BY columnName) || ')'
FROM IndexColumns WHERE isUnique GROUP BY tableName, indexrelid
UNION ALL
SELECT DISTINCT tableName, 'an index for look-ups by ' || columnName
FROM IndexColumns WHERE NOT isUnique AND position = 1
